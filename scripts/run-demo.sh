#!/bin/sh
# Archives the sample document through the real staging and hand-off code in the build's prefix.
set -eu
BUILD_DIR=$(cd "$1" && pwd)
top=$(cd "$(dirname "$0")/.." && pwd)
. "$top/scripts/wine-env.sh"
"$top/scripts/wine-prefix.sh" "$BUILD_DIR"
"$top/scripts/register-stub-connector.sh" "$BUILD_DIR"
wine regedit /S "Z:$(printf '%s' "$top/tools/samples/demo-settings.reg" | tr / '\\')" >/dev/null 2>&1
wine "$BUILD_DIR/tools/hostsim/hostsim.exe" "Z:$(printf '%s' "$top/tools/samples/Angebot 2024.docx" | tr / '\\')"
