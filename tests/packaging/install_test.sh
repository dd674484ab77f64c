#!/bin/sh
# `cmake --install` into a DESTDIR: exactly the public headers (the umbrella header compiles on
# its own from there), the library with its soname exporting no internals, zqcore.pc, the CMake
# package, zqpod and its manual page; then the example application built against that copy.
#   install_test.sh SOURCE-DIR BUILD-DIR
set -eu
source=$1 build=$2
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT INT TERM
prefix=/opt/zqcore

DESTDIR=$root cmake --install "$build" --prefix $prefix >/dev/null
libdir=$(cd "$root$prefix" && dirname "$(find . -name libZQCore.so.0 | sed 's|^\./||')")

# The headers are the public list; none of the record layouts, SQLite helpers or other internals.
(cd "$root$prefix/include" && find . -type f | sed 's|^\./||' | sort) > "$root/headers"
sed -n '/^set(ZQ_PUBLIC_HEADERS/,/)/p' "$source/cmake/Install.cmake" | grep -o 'ZQCore/[A-Za-z/+]*\.h' | sort > "$root/public"
diff -u "$root/public" "$root/headers"
echo '#include <ZQCore/ZQCore.h>' | c++ -std=c++20 -fsyntax-only -I"$root$prefix/include" -x c++ -

# The shared library: soname, and only the public classes exported (the byte reader and the
# SQLite helpers are internal).
lib="$root$prefix/$libdir/libZQCore.so.0"
objdump -p "$lib" | grep -q 'SONAME *libZQCore.so.0$'
test "$(readlink "$root$prefix/$libdir/libZQCore.so")" = libZQCore.so.0
nm -DC --defined-only "$lib" | grep -q 'zq::ZQCoreiPod::initWithiPodReference'
if nm -DC --defined-only "$lib" | grep -E ' zq::(XRDataReader|SQLite[A-Za-z]*|VolumeMonitor)::'; then
    echo "internal symbols are exported" >&2
    exit 1
fi

for file in bin/zqpod share/man/man1/zqpod.1.gz $libdir/pkgconfig/zqcore.pc \
            $libdir/cmake/ZQCore/ZQCoreConfig.cmake $libdir/cmake/ZQCore/ZQCoreConfigVersion.cmake; do
    test -f "$root$prefix/$file" || { echo "missing: $prefix/$file" >&2; exit 1; }
done
# The installed zqpod runs with the installed library (found through its run path).
"$root$prefix/bin/zqpod" --help >/dev/null
zcat "$root$prefix/share/man/man1/zqpod.1.gz" | grep -q '^\.TH ZQPOD 1'

"$source/tests/packaging/check_example.sh" "$source" "$build" "$root" $prefix "$libdir"
# The README shows the example and the Python test's snippet as they are.
/usr/bin/python3 "$source/tests/packaging/readme_snippets.py" "$source"
