#!/bin/sh
# `make bench` and `make soak`: the benchmark (tools/bench/Bench.cpp) or the 1,000-command soak
# run (tools/bench/Soak.cpp) in the build's Wine prefix, with the stub connector registered for
# the talvorn: scheme. Without a display: a message box the add-in might show answers at once
# instead of waiting for a click. `profile` samples archiving 30 mails (tools/bench/Sampler.h) and
# prints where the time goes (scripts/profile-report.py).
# Usage: run-bench.sh BUILD_DIR bench|soak|profile [arguments...]
set -eu
BUILD_DIR=$(cd "$1" && pwd)
mode=$2
shift 2
top=$(cd "$(dirname "$0")/.." && pwd)
export TALVORN_NATIVE_DLLS=mapi32
. "$top/scripts/wine-env.sh"
"$top/scripts/wine-prefix.sh" "$BUILD_DIR"
"$top/scripts/register-stub-connector.sh" "$BUILD_DIR"
winpath() { printf 'Z:%s' "$1" | tr / '\\'; }

dll=$(winpath "$BUILD_DIR/addin/TalvornAddin.dll")
items=$top/tools/samples/outlook
status=0
if [ "$mode" = bench ]; then
    printf 'machine: %s, %s cores, %s\n' \
        "$(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -n 1)" "$(nproc)" \
        "$(wine --version)"
    env -u DISPLAY wine "$BUILD_DIR/tools/bench/bench.exe" "$@" "$dll" \
        "$(winpath "$BUILD_DIR/tools/bench/EmptyAddin.dll")" \
        "$(winpath "$items/01-angebot.item")" 2>/dev/null || status=$?
elif [ "$mode" = profile ]; then
    samples=$BUILD_DIR/profile-samples.txt
    rm -f "$samples"
    env -u DISPLAY wine "$BUILD_DIR/tools/bench/bench.exe" --profile "$(winpath "$samples")" "$dll" \
        "$(winpath "$items/01-angebot.item")" "${1:-30}" 2>/dev/null || status=$?
    wine_dlls=$(dirname "$(command -v wine)")/../lib/x86_64-linux-gnu/wine/x86_64-windows
    [ -d "$wine_dlls" ] || wine_dlls=/usr/lib/x86_64-linux-gnu/wine/x86_64-windows
    python3 "$top/scripts/profile-report.py" "$samples" "$BUILD_DIR/addin/TalvornAddin.dll" \
        "$BUILD_DIR/tools/bench/mapi32.dll" "$BUILD_DIR/tools/bench/bench.exe" \
        "$wine_dlls/ole32.dll" "$wine_dlls/kernelbase.dll"
else
    env -u DISPLAY wine "$BUILD_DIR/tools/bench/soak.exe" "$@" "$dll" \
        "$(winpath "$top/tools/samples/Angebot 2024.docx")" "$(winpath "$items/01-angebot.item")" \
        "$(winpath "$items/02-exchange.item")" "$(winpath "$items/11-anhaenge.item")" 2>/dev/null ||
        status=$?
fi
wineserver -w
exit $status
