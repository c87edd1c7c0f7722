#!/bin/sh
# Makes the build folder's Wine prefix once (it takes about 20 s) and sets it up for unattended
# runs. A prefix whose creation did not finish is made again; a prefix made with older set-up
# steps gets the current ones.
set -eu
BUILD_DIR=$(cd "$1" && pwd)
. "$(dirname "$0")/wine-env.sh"
stamp="$WINEPREFIX/.talvorn-ready"
setup_version=2

if [ ! -f "$stamp" ]; then
    rm -rf "$WINEPREFIX"
    echo "creating Wine prefix $WINEPREFIX"
    wineboot -i >/dev/null 2>&1
    wineserver -w
    echo 0 > "$stamp"
fi
[ "$(cat "$stamp")" = "$setup_version" ] && exit 0

# A crashing test program must end, not wait on a crash dialog nobody sees.
wine reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f >/dev/null 2>&1
# Xvfb has no window manager; managed windows make Wine wait for one about 2 s per dialog.
wine reg add 'HKCU\Software\Wine\X11 Driver' /v Managed /d N /f >/dev/null 2>&1
wineserver -w
echo "$setup_version" > "$stamp"
