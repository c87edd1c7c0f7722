#!/bin/sh
# The simulated host in command-bar mode, with the add-in registered in the build's prefix as the
# demo does: Word 2003 and Outlook 2007 show the add-in's buttons with one click sink each, a click
# on "Dokument ablegen" reaches the connector, and the add-in gives every reference back. In
# Outlook the archive button of an inspector opened after start-up archives that window's item,
# and closing the inspector leaves no sink on its buttons.
# Usage: command-bars.sh BUILD_DIR
set -eu
BUILD_DIR=$(cd "$1" && pwd)
top=$(cd "$(dirname "$0")/../../.." && pwd)
export TALVORN_NATIVE_DLLS=mapi32
. "$top/scripts/wine-env.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
winpath() { printf 'Z:%s' "$1" | tr / '\\'; }

cp "$top/tools/samples/setup.ini" "$BUILD_DIR/addin/setup.ini"
(cd "$BUILD_DIR/addin" && wine regsvr32 /s TalvornAddin.dll)

status=0
# run NAME ARGS...: hostsim's output in $work/NAME.txt; it fails when nothing reached the connector.
run() {
    name=$1
    shift
    # Without a display a message box the add-in shows answers at once instead of waiting.
    env -u DISPLAY wine "$BUILD_DIR/tools/hostsim/hostsim.exe" "$@" >"$work/$name.txt" 2>&1 ||
        { echo "$name: hostsim failed"; cat "$work/$name.txt"; status=1; }
}
expect() {
    LC_ALL=C grep -a -q -- "$2" "$work/$1.txt" ||
        { echo "$1: missing: $2"; cat "$work/$1.txt"; status=1; }
}

item=$(winpath "$top/tools/samples/outlook/01-angebot.item")
run word --host word --version 11.0 "$(winpath "$top/tools/samples/Angebot 2024.docx")"
run outlook --host outlook --version 12.0 "$item"
run inspector --host outlook --version 12.0 --button ArchiveSingleOutlook "$item"

for name in word outlook; do
    expect $name '^command-bar buttons:'
    expect $name 'TLPMBTDX2_0001 "Dokument ablegen", 1 click sink(s)'
    expect $name 'TLCBBTDX2_0002 "Dokument ablegen", 1 click sink(s)'
    expect $name '^clicked command-bar button TLPMBTDX2_0001: 0x00000000'
done
expect word 'TLPMBTDX2_0003 "Info", 1 click sink(s)'
expect outlook 'TLPMBTDX2_0004 "Anh.*nge ablegen", 1 click sink(s)'
expect inspector '^command-bar buttons of the inspector:'
expect inspector '^clicked command-bar button TLPMBTDX2_0001: 0x00000000'
expect inspector 'OnArchiveSingleOutlook invoked'
expect inspector '^closed the inspector; click sinks left on its buttons: 0'
for name in word outlook inspector; do
    expect $name '^connector received: talvorn:'
    expect $name '^disconnected; references the add-in still holds on the Application: 0'
done
for name in outlook inspector; do
    expect $name "^references still held on Outlook's objects: none; MAPI session objects still alive: 0; MAPI buffers not freed: 0"
done
exit $status
