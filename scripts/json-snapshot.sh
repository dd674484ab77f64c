#!/bin/bash
# What zqpod says about every kind of library we can lay hands on, as files to compare across a
# change: the JSON and the plain listing of each built-in sample layout, of the real samples in
# ../shared (when it is there), of a generated 20,000-track phone, and of the benchmark volumes
# (when `make bench` has written them into BUILD/bench-data).
#
#   scripts/json-snapshot.sh BUILD OUT      then, after the change:
#   scripts/json-snapshot.sh BUILD OUT2 && diff -r OUT OUT2
#
# Generated volumes are kept in OUT/volumes so that both runs read the very same files: pass
# the first run's folder as VOLUMES=... to the second (generated sample databases carry no
# clock, but this keeps the comparison about the reader alone).
set -eu
BUILD=$(cd "$1" && pwd)
OUT=$2
HERE=$(cd "$(dirname "$0")/.." && pwd)
VOLUMES=${VOLUMES:-$OUT/volumes}
mkdir -p "$OUT" "$VOLUMES"
export LC_ALL=C TZ=UTC

snapshot() {  # NAME DIR
    "$BUILD/zqpod" library "$2" --json >"$OUT/$1.json" 2>"$OUT/$1.json.err" || echo "exit $?" >>"$OUT/$1.json.err"
    "$BUILD/zqpod" library "$2" >"$OUT/$1.txt" 2>"$OUT/$1.txt.err" || echo "exit $?" >>"$OUT/$1.txt.err"
    # Messages name the folder; the volumes folder differs between runs.
    sed -i "s#$2#DIR#g" "$OUT/$1.json.err" "$OUT/$1.txt.err" "$OUT/$1.json" "$OUT/$1.txt"
}

for layout in ipod nano phone modern ios6 ios8; do
    dir=$VOLUMES/$layout
    if [ ! -d "$dir" ]; then
        case $layout in
            ipod) option= ;;
            nano) option=--nano ;;
            phone) option=--phone ;;
            *) option=--phone=$layout ;;
        esac
        "$BUILD/zq-make-sample" $option "$dir" >/dev/null
    fi
    snapshot "$layout" "$dir"
done
if [ ! -d "$VOLUMES/modern-20000" ]; then
    "$BUILD/zq-make-sample" --phone=modern --tracks=20000 "$VOLUMES/modern-20000" >/dev/null
fi
snapshot modern-20000 "$VOLUMES/modern-20000"

SAMPLES=$HERE/../shared/samples
if [ -d "$SAMPLES" ]; then
    for sample in "$SAMPLES"/*/; do
        name=$(basename "$sample")
        # The real samples are bare database files; they are read from a volume laid out
        # around them, as a device would hold them.
        vol=$VOLUMES/sample-$name
        if [ ! -d "$vol" ]; then
            mkdir -p "$vol/iPod_Control/iTunes" "$vol/iPod_Control/Artwork" "$vol/iPod_Control/Device"
            cp "$sample"/iTunesDB "$vol/iPod_Control/iTunes/" 2>/dev/null || true
            [ -f "$sample/SysInfo" ] && cp "$sample/SysInfo" "$vol/iPod_Control/Device/"
            for f in "$sample"/ArtworkDB "$sample"/*.ithmb; do [ -f "$f" ] && cp "$f" "$vol/iPod_Control/Artwork/"; done
        fi
        snapshot "sample-$name" "$vol"
    done
else
    echo "json-snapshot: ../shared/samples is not there; the real samples are left out" >&2
fi

for bench in "$BUILD"/bench-data/gpod-* "$BUILD"/bench-data/bench_library_50k.volume; do
    [ -d "$bench" ] && snapshot "bench-$(basename "$bench")" "$bench"
done
echo "$OUT"
