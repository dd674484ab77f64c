#!/bin/bash
# Whole processes, side by side: zqpod against its peers on the same files in the same run.
#
#   bench/whole-process.sh BUILD [BEFORE]
#
# BUILD holds zqpod, zq-make-sample, zq-device-sim, bench_open_sqlite and the peers gpod_peer
# and afc_peer. BEFORE, if given, is a folder with an earlier zqpod, its libZQCore.so.0 and its
# bench_open_sqlite: its figures are added as a column, with the ratio after/before.
#
# Each command runs BENCH_RUNS times (default 3); the fastest run counts, with its peak memory
# (/usr/bin/time's maximum resident set size). Generated volumes are kept in BUILD/bench-data.
set -u

BUILD=$(cd "$1" && pwd)
BEFORE=${2:+$(cd "$2" && pwd)}
RUNS=${BENCH_RUNS:-3}
DATA=$BUILD/bench-data
TRACKS=${BENCH_TRACKS:-100000}
UDID=00008030-0000BE0C0000BE0C
mkdir -p "$DATA"
export LC_ALL=C

SIM_PID=
cleanup() {
    [ -n "$SIM_PID" ] && kill "$SIM_PID" 2>/dev/null
    exec 3>&- 2>/dev/null
    rm -rf "$DATA/out" "$DATA/sim.in" "$DATA/usbmuxd.sock"
}
trap cleanup EXIT

# measure CMD... : T (wall seconds, fastest run), C (user + system seconds of that run) and M
# (its peak KiB). On a busy machine wall time waits for the CPU; C shows the work itself.
measure() {
    T= M= C=
    local i start end rss cpu
    for ((i = 0; i < RUNS; i++)); do
        rm -rf "$DATA/out"
        start=$(date +%s%N)
        /usr/bin/time -f '%M %U %S' -o "$DATA/rss" "$@" >/dev/null 2>"$DATA/stderr" || {
            echo "failed: $*" >&2
            cat "$DATA/stderr" >&2
            T=nan M=nan C=nan
            return
        }
        end=$(date +%s%N)
        rss=$(tail -1 "$DATA/rss" | cut -d' ' -f1)
        cpu=$(tail -1 "$DATA/rss" | awk '{ printf "%.2f", $2 + $3 }')
        local t=$(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.3f", (b - a) / 1e9 }')
        if [ -z "$T" ] || awk -v a="$t" -v b="$T" 'BEGIN { exit !(a < b) }'; then
            T=$t M=$rss C=$cpu
        fi
    done
}

ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (a == "nan" || b == "nan" || b == 0) print "-"; else printf "%.3f", a / b }'; }
mib() { awk -v k="$1" 'BEGIN { if (k == "nan") print "-"; else printf "%.1f MiB", k / 1024 }'; }
secs() { awk -v s="$1" 'BEGIN { if (s == "nan") print "-"; else printf "%.3f s", s }'; }
rate() { awk -v b="$1" -v s="$2" 'BEGIN { if (s == "nan" || s == 0) print "-"; else printf "%.0f MB/s", b / s / 1e6 }'; }

ROWS=()
row() { ROWS+=("$(printf '%-34s|%-14s|%-14s|%-14s|%-9s|%s' "$@")"); }

# ---- the 100,000-track iTunesDB, written by libgpod -------------------------
VOL=$DATA/gpod-$TRACKS
if [ ! -f "$VOL/done" ]; then
    echo "writing $VOL with libgpod (once; libgpod's writer is slow on large libraries) ..." >&2
    rm -rf "$VOL" && mkdir -p "$VOL"
    "$BUILD/gpod_peer" write "$VOL" "$TRACKS" >&2 && touch "$VOL/done" || exit 1
fi
DB_KIB=$(( $(stat -c %s "$VOL/iPod_Control/iTunes/iTunesDB") / 1024 ))

measure "$BUILD/gpod_peer" parse "$VOL"; PEER_T=$T PEER_M=$M PEER_C=$C
measure "$BUILD/gpod_peer" json "$VOL"; PEERJ_T=$T PEERJ_M=$M PEERJ_C=$C
measure "$BUILD/zqpod" library "$VOL"; LIB_T=$T LIB_M=$M LIB_C=$C
measure sh -c '"$0" library "$1" --json' "$BUILD/zqpod" "$VOL"; JSON_T=$T JSON_M=$M JSON_C=$C
if [ -n "$BEFORE" ]; then
    measure env LD_LIBRARY_PATH="$BEFORE" "$BEFORE/zqpod" library "$VOL"; BLIB_T=$T BLIB_M=$M BLIB_C=$C
    measure env LD_LIBRARY_PATH="$BEFORE" sh -c '"$0" library "$1" --json' "$BEFORE/zqpod" "$VOL"; BJSON_T=$T BJSON_M=$M BJSON_C=$C
fi

# ---- the 50,000-track SQLite library ----------------------------------------
# bench_open_sqlite generates it (both formats; zqpod then reads the SQLite databases) and
# times the load alone.
sqlite_load_ms() {
    (cd "$DATA" && "$@" --benchmark_filter=SQLite --benchmark_min_time=1 --benchmark_format=csv 2>/dev/null) |
        awk -F, '/BM_OpenSQLiteLibrary50k/ { printf "%.1f %.1f", $3, $4 }'
}
read -r SQL_LOAD SQL_LOAD_CPU < <(sqlite_load_ms "$BUILD/bench_open_sqlite")
SQLVOL=$DATA/bench_library_50k.volume
measure "$BUILD/zqpod" library "$SQLVOL"; SQL_T=$T SQL_M=$M SQL_C=$C
if [ -n "$BEFORE" ]; then
    read -r BSQL_LOAD BSQL_LOAD_CPU < <(sqlite_load_ms env LD_LIBRARY_PATH="$BEFORE" "$BEFORE/bench_open_sqlite")
    measure env LD_LIBRARY_PATH="$BEFORE" "$BEFORE/zqpod" library "$SQLVOL"; BSQL_T=$T BSQL_M=$M BSQL_C=$C
fi

# ---- mobile reads through the simulator -------------------------------------
PHONE=$DATA/phone
BIG=200000000
if [ ! -f "$PHONE/done" ]; then
    rm -rf "$PHONE"
    "$BUILD/zq-make-sample" --phone "$PHONE" >/dev/null || exit 1
    touch "$PHONE/done"
fi
rm -f "$DATA/sim.in" && mkfifo "$DATA/sim.in"
"$BUILD/zq-device-sim" --listen "UNIX:$DATA/usbmuxd.sock" <"$DATA/sim.in" >"$DATA/sim.log" 2>&1 &
SIM_PID=$!
exec 3>"$DATA/sim.in"
echo "attach $UDID $PHONE name=Bench" >&3
for _ in $(seq 50); do grep -q '^ok' "$DATA/sim.log" && break; sleep 0.1; done
export USBMUXD_SOCKET_ADDRESS=UNIX:$DATA/usbmuxd.sock
# The first track becomes a 200 MB file; copy takes its album (the other tracks are small).
"$BUILD/zqpod" library "$UDID" --json >"$DATA/phone.json" || exit 1
read -r TRACK_ID TRACK_FILE ALBUM < <(awk -F': ' '
    /"trackID"/ { gsub(/,/, "", $2); id = $2 }
    /"album"/ && !album { album = $2; gsub(/^"|",$/, "", album) }
    /"filePath"/ { f = $2; gsub(/^"|",$/, "", f); print id, f, album; exit }' "$DATA/phone.json")
DEVICE_PATH=/iTunes_Control/${TRACK_FILE#*/iTunes_Control/}
LOCAL=$PHONE$DEVICE_PATH
if [ "$(stat -c %s "$LOCAL")" != "$BIG" ]; then head -c $BIG /dev/zero >"$LOCAL"; fi

mobile() { # ZQPOD [LIBRARY-FOLDER]
    local z=$1 lib=${2:-}
    measure env ${lib:+LD_LIBRARY_PATH=$lib} "$z" get "$UDID" "$TRACK_ID" "$DATA/out"; G_T=$T G_M=$M
    measure env ${lib:+LD_LIBRARY_PATH=$lib} "$z" copy "$UDID" "$DATA/out" --album "$ALBUM"; C_T=$T C_M=$M
    C_BYTES=$(du -sb "$DATA/out" | cut -f1)
}
measure "$BUILD/afc_peer" "$UDID" "$DEVICE_PATH" "$DATA/out"; AFC_T=$T AFC_M=$M
mobile "$BUILD/zqpod"; GET_T=$G_T GET_M=$G_M COPY_T=$C_T COPY_M=$C_M COPY_BYTES=$C_BYTES
[ -n "$BEFORE" ] && { mobile "$BEFORE/zqpod" "$BEFORE"; BGET_T=$G_T BGET_M=$G_M BCOPY_T=$C_T BCOPY_M=$C_M; }
# throughput ratio: (bytes a / time a) / (bytes b / time b)
rates() { awk -v a="$1" -v s="$2" -v b="$3" -v t="$4" 'BEGIN { if (s == "nan" || t == "nan" || s == 0) print "-"; else printf "%.3f", (a / s) / (b / t) }'; }

# ---- the table --------------------------------------------------------------
B=${BEFORE:+x}
col() { [ -n "$B" ] && echo "$1" || echo ""; }
row "measure" "ours" "peer/base" "ours/peer" "goal" "$(col 'before | after/before')"
row "library ${TRACKS}: time" "$(secs $LIB_T)" "$(secs $PEER_T)" "$(ratio $LIB_T $PEER_T)" "<= 0.125" \
    "$(col "$(secs ${BLIB_T:-nan}) | $(ratio $LIB_T ${BLIB_T:-nan})")"
row "library ${TRACKS}: cpu time" "$(secs $LIB_C)" "$(secs $PEER_C)" "$(ratio $LIB_C $PEER_C)" "<= 0.125" \
    "$(col "$(secs ${BLIB_C:-nan}) | $(ratio $LIB_C ${BLIB_C:-nan})")"
row "library ${TRACKS}: peak / iTunesDB" "$(mib $LIB_M)" "$(mib $DB_KIB)" "$(ratio $LIB_M $DB_KIB)" "<= 0.4" \
    "$(col "$(mib ${BLIB_M:-nan}) | $(ratio $LIB_M ${BLIB_M:-nan})")"
row "  (libgpod parse peak)" "" "$(mib $PEER_M)" "$(ratio $LIB_M $PEER_M)" "" ""
row "library --json: time / plain" "$(secs $JSON_T)" "$(secs $LIB_T)" "$(ratio $JSON_T $LIB_T)" "<= 2" \
    "$(col "$(secs ${BJSON_T:-nan}) | $(ratio $JSON_T ${BJSON_T:-nan})")"
row "library --json: cpu / plain" "$(secs $JSON_C)" "$(secs $LIB_C)" "$(ratio $JSON_C $LIB_C)" "<= 2" \
    "$(col "$(secs ${BJSON_C:-nan}) | $(ratio $JSON_C ${BJSON_C:-nan})")"
row "library --json: peak / plain" "$(mib $JSON_M)" "$(mib $LIB_M)" "$(ratio $JSON_M $LIB_M)" "<= 1.2" \
    "$(col "$(mib ${BJSON_M:-nan}) | $(ratio $JSON_M ${BJSON_M:-nan})")"
row "  (libgpod parse + JSON dump)" "$(secs $JSON_T)" "$(secs $PEERJ_T)" "$(ratio $JSON_T $PEERJ_T)" "" \
    "$(col "cpu $(secs $PEERJ_C), peak $(mib $PEERJ_M)")"
row "SQLite 50k: load (ms)" "$SQL_LOAD" "200" "$(ratio $SQL_LOAD 200)" "<= 1" \
    "$(col "${BSQL_LOAD:-nan} | $(ratio $SQL_LOAD ${BSQL_LOAD:-nan})")"
row "SQLite 50k: load cpu (ms)" "$SQL_LOAD_CPU" "200" "$(ratio $SQL_LOAD_CPU 200)" "<= 1" \
    "$(col "${BSQL_LOAD_CPU:-nan} | $(ratio $SQL_LOAD_CPU ${BSQL_LOAD_CPU:-nan})")"
row "SQLite 50k: zqpod library" "$(secs $SQL_T)" "" "" "" "$(col "$(secs ${BSQL_T:-nan}) | $(ratio $SQL_T ${BSQL_T:-nan})")"
row "SQLite 50k: zqpod library cpu" "$(secs $SQL_C)" "" "" "" "$(col "$(secs ${BSQL_C:-nan}) | $(ratio $SQL_C ${BSQL_C:-nan})")"
row "mobile get 200 MB: rate" "$(rate $BIG $GET_T)" "$(rate $BIG $AFC_T)" "$(rates $BIG $GET_T $BIG $AFC_T)" ">= 0.8" \
    "$(col "$(rate $BIG ${BGET_T:-nan}) | $(rates $BIG $GET_T $BIG ${BGET_T:-nan})")"
row "mobile get: peak memory" "$(mib $GET_M)" "$(mib $AFC_M)" "$(ratio $GET_M $AFC_M)" "constant" \
    "$(col "$(mib ${BGET_M:-nan}) | $(ratio $GET_M ${BGET_M:-nan})")"
row "mobile copy album: rate" "$(rate $COPY_BYTES $COPY_T)" "$(rate $BIG $AFC_T)" "$(rates $COPY_BYTES $COPY_T $BIG $AFC_T)" ">= 0.8" \
    "$(col "$(rate $COPY_BYTES ${BCOPY_T:-nan}) | $(rates $COPY_BYTES $COPY_T $COPY_BYTES ${BCOPY_T:-nan})")"
row "mobile copy: peak memory" "$(mib $COPY_M)" "$(mib $AFC_M)" "$(ratio $COPY_M $AFC_M)" "constant" \
    "$(col "$(mib ${BCOPY_M:-nan}) | $(ratio $COPY_M ${BCOPY_M:-nan})")"
echo
echo "Whole processes, fastest of $RUNS runs (by wall time), warm cache; iTunesDB $(mib $DB_KIB), $TRACKS tracks written by libgpod."
echo "Load average at the end: $(cut -d' ' -f1-3 /proc/loadavg) on $(nproc) CPUs."
printf '%s\n' "${ROWS[@]}" | tr '|' ' '
echo "Ratios are ours/peer (after/before): times and memory, lower is better; mobile rates, higher is better."
