#!/bin/sh
# Builds examples/zq-list against an installed ZQCore under ROOT (a DESTDIR install or unpacked
# Debian packages, prefix PREFIX), once with CMake's find_package and once with pkg-config, runs
# both on a sample device and compares what they print with zqpod's report of the same device.
#   check_example.sh SOURCE-DIR BUILD-DIR ROOT PREFIX LIBDIR
set -eu
source=$1 build=$2 root=$3 prefix=$4 libdir=$5
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT INT TERM

"$build/zq-make-sample" "$work/ipod" >/dev/null
"$build/zqpod" library "$work/ipod" --json | /usr/bin/python3 "$source/tests/packaging/expected_listing.py" > "$work/expected"

cmake -S "$source/examples/zq-list" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$root$prefix" >/dev/null
cmake --build "$work/cmake" >/dev/null
cp -r "$source/examples/zq-list" "$work/make"
rm -f "$work/make/zq-list"
PKG_CONFIG_PATH="$root$prefix/$libdir/pkgconfig" make -s -C "$work/make" >/dev/null

for program in "$work/cmake/zq-list" "$work/make/zq-list"; do
    LD_LIBRARY_PATH="$root$prefix/$libdir" "$program" "$work/ipod" > "$work/printed"
    diff -u "$work/expected" "$work/printed"
    # The library it ran with is the installed one.
    LD_LIBRARY_PATH="$root$prefix/$libdir" ldd "$program" | grep -F "libZQCore.so.0 => $root$prefix/$libdir/libZQCore.so.0"
done
echo "zq-list built with find_package and with pkg-config against $root$prefix prints:"
head -4 "$work/printed"
echo "  ..."
