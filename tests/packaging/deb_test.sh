#!/bin/sh
# The Debian packages of `make deb`: each holds exactly its files and states its dependencies,
# apt could install them together on this system, and dpkg installs them into an empty root;
# then the example application is built against the development files there, and zqpod and the
# Python module run from that root on the sample device.
#   deb_test.sh SOURCE-DIR BUILD-DIR DEB-DIR
set -eu
source=$(cd "$1" && pwd) build=$(cd "$2" && pwd) debs=$(cd "$3" && pwd)
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT INT TERM
multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
libdir=lib/$multiarch
version=$(sed -n '1s/^zqcore (\(.*\)).*/\1/p' "$source/packaging/changelog")
python_tag=$(/usr/bin/python3 -c 'import sysconfig; print(sysconfig.get_config_var("EXT_SUFFIX"))')

expect() {  # PACKAGE FILE...: the files (and links) the package must hold, and no others
    package=$1; shift
    deb="$debs/${package}_${version}_$(dpkg --print-architecture).deb"
    test -f "$deb" || { echo "missing package: $deb" >&2; exit 1; }
    for file in "$@" "usr/share/doc/$package/copyright" "usr/share/doc/$package/changelog.Debian.gz"; do
        echo "./$file"
    done | sort > "$root/expected"
    dpkg-deb -c "$deb" | awk '$1 !~ /^d/ { print $6 }' | sort > "$root/actual"
    diff -u "$root/expected" "$root/actual" || { echo "unexpected contents of $package" >&2; exit 1; }
}
headers=$(sed -n '/^set(ZQ_PUBLIC_HEADERS/,/)/p' "$source/cmake/Install.cmake" | grep -o 'ZQCore/[A-Za-z/+]*\.h' |
          sed 's|^|usr/include/|')
expect libzqcore0 usr/$libdir/libZQCore.so.0 usr/$libdir/libZQCore.so.0.1.0
expect libzqcore-dev $headers usr/$libdir/libZQCore.so usr/$libdir/pkgconfig/zqcore.pc \
    usr/$libdir/cmake/ZQCore/ZQCoreConfig.cmake usr/$libdir/cmake/ZQCore/ZQCoreConfigVersion.cmake \
    usr/$libdir/cmake/ZQCore/ZQCoreTargets.cmake usr/$libdir/cmake/ZQCore/ZQCoreTargets-relwithdebinfo.cmake
expect zqpod usr/bin/zqpod usr/share/man/man1/zqpod.1.gz
expect python3-zqcore usr/lib/python3/dist-packages/zqcore/__init__.py \
    usr/lib/python3/dist-packages/zqcore/_zqcore$python_tag
icons=$(for size in 16 24 32 48 64 128 256 512; do echo "usr/share/icons/hicolor/${size}x$size/apps/org.zqcore.ZQPod.png"; done)
expect zqpod-gui usr/bin/zqpod-gui usr/share/man/man1/zqpod-gui.1.gz usr/share/applications/org.zqcore.ZQPod.desktop \
    usr/share/metainfo/org.zqcore.ZQPod.metainfo.xml $icons

# Dependencies: on each other by version, on Debian's libraries through dpkg-shlibdeps.
depends() { dpkg-deb -f "$debs/${1}_${version}_$(dpkg --print-architecture).deb" Depends; }
depends libzqcore0 | grep -q 'libimobiledevice6'
depends libzqcore0 | grep -q 'zlib1g'  # the compressed library database (iTunesCDB)
depends libzqcore-dev | grep -qx "libzqcore0 (= $version)"
depends zqpod | grep -q "libzqcore0 (>= $version)"
depends zqpod-gui | grep -q "libzqcore0 (>= $version)"
depends zqpod-gui | grep -q 'libqt6widgets6'
depends zqpod-gui | grep -q 'qt6-qpa-plugins'
depends python3-zqcore | grep -q "libzqcore0 (= $version), python3 (>= 3.11), python3 (<< 3.12)"
dpkg-deb -I "$debs/libzqcore0_${version}_$(dpkg --print-architecture).deb" shlibs | grep -qx "libZQCore 0 libzqcore0 (>= $version)"
# apt resolves them together against this system's package lists, without installing anything.
apt-get install --simulate -qq "$debs"/*_"$version"_*.deb >/dev/null

# Installed by dpkg itself into an empty root (its database made empty; the dependencies on
# the system's libraries are not there, and no maintainer script needs to run).
tree=$root/tree
mkdir -p "$tree/var/lib/dpkg/info" "$tree/var/lib/dpkg/updates"
touch "$tree/var/lib/dpkg/status" "$tree/var/lib/dpkg/available"
dpkg --root="$tree" --force-depends --force-script-chrootless --force-not-root --log=/dev/null \
    -i "$debs"/*_"$version"_*.deb > "$root/dpkg.log" 2>&1 || { cat "$root/dpkg.log" >&2; exit 1; }
dpkg --root="$tree" -L zqpod | grep -qx /usr/bin/zqpod
test "$(dpkg --root="$tree" -S /usr/$libdir/libZQCore.so.0 | cut -d: -f1)" = libzqcore0

"$source/tests/packaging/check_example.sh" "$source" "$build" "$root/tree" /usr "$libdir"

"$build/zq-make-sample" "$root/ipod" >/dev/null
LD_LIBRARY_PATH="$root/tree/usr/$libdir" "$root/tree/usr/bin/zqpod" library "$root/ipod" | head -1 | grep -q 'Sample iPod'
LD_LIBRARY_PATH="$root/tree/usr/$libdir" PYTHONPATH="$root/tree/usr/lib/python3/dist-packages" /usr/bin/python3 -c '
import sys, zqcore
assert zqcore.__file__.startswith(sys.argv[1]), zqcore.__file__
library = zqcore.open(sys.argv[2])
print("python3-zqcore from the packages:", library.name, len(library.tracks), "tracks")
' "$root/tree" "$root/ipod"
# The desktop application from the packages draws the sample device's library (offscreen).
LD_LIBRARY_PATH="$root/tree/usr/$libdir" QT_QPA_PLATFORM=offscreen XDG_RUNTIME_DIR="$root" \
    "$root/tree/usr/bin/zqpod-gui" --screenshot "$root/window.png" "$root/ipod" 2>/dev/null
test -s "$root/window.png"
echo "Debian packages: contents, dependencies, dpkg --root install, example, zqpod, Python and zqpod-gui checked"
