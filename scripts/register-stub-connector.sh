#!/bin/sh
# Registers the build's stub connector as the handler of the "talvorn" URL scheme in the build's
# Wine prefix, where the real Desktop Connector is not installed.
set -eu
BUILD_DIR=$(cd "$1" && pwd)
. "$(dirname "$0")/wine-env.sh"
exe="Z:$(printf '%s' "$BUILD_DIR/tools/stubconnector/stubconnector.exe" | tr / '\\')"
exe_escaped=$(printf '%s' "$exe" | sed 's/\\/\\\\/g')
cat > "$BUILD_DIR/talvorn-url.reg" <<REG
REGEDIT4

[HKEY_CLASSES_ROOT\\talvorn]
@="URL:talvorn Desktop Connector"
"URL Protocol"=""

[HKEY_CLASSES_ROOT\\talvorn\\shell\\open\\command]
@="\\"$exe_escaped\\" \\"%1\\""
REG
wine regedit /S "Z:$(printf '%s' "$BUILD_DIR/talvorn-url.reg" | tr / '\\')" >/dev/null 2>&1
wineserver -w
