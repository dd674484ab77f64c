#!/usr/bin/env bash
# The application's figures beside `zqpod library` on the same device: its wall time and peak
# memory (GNU time), then gui_bench's. Makes a 100,000-track phone folder when none is given.
#   gui/bench/run.sh BUILD [DEVICE-FOLDER]
set -euo pipefail
build=${1:?usage: run.sh BUILD [DEVICE-FOLDER]}
device=${2:-}
if [ -z "$device" ]; then
    device=$build/bench-gui-100k
    [ -d "$device" ] || "$build/zq-make-sample" --phone=modern --tracks=100000 "$device" >/dev/null
fi
"$build/zqpod" library "$device" >/dev/null  # once, so both read a warm page cache
/usr/bin/time -f "zqpod library          %e s, peak memory %M kB" "$build/zqpod" library "$device" >/dev/null
QT_QPA_PLATFORM=offscreen "$build/gui/bench/gui_bench" "$device"
