#!/bin/sh
# Makes the build folder's Wine prefix once (it takes about 20 s) and sets it up for unattended
# runs. A prefix whose set-up did not finish is made again.
set -eu
BUILD_DIR=$(cd "$1" && pwd)
. "$(dirname "$0")/wine-env.sh"
stamp="$WINEPREFIX/.talvorn-ready"
[ -f "$stamp" ] && exit 0
rm -rf "$WINEPREFIX"
echo "creating Wine prefix $WINEPREFIX"
wineboot -i >/dev/null 2>&1
# A crashing test program must end, not wait on a crash dialog nobody sees.
wine reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f >/dev/null 2>&1
wineserver -w
touch "$stamp"
