#!/bin/sh
# The demo: registers the built add-in in the build's Wine prefix with regsvr32 from a folder
# holding the sample setup.ini (as an administrator installs it), then archives the sample
# document through the simulated Word host, which loads the add-in over COM, and the sample Outlook
# items through the simulated Outlook (all but the signed mail, which this build does not archive).
# With signed_mail=yes below it also archives the signed mail alone and the attachments of the
# sample with attachments (hostsim registers the simulated MAPI library for each run); switch that
# on once the add-in archives signed mail and attachments.
set -eu
signed_mail=no
BUILD_DIR=$(cd "$1" && pwd)
top=$(cd "$(dirname "$0")/.." && pwd)
# hostsim brings the simulated mapi32.dll beside it, which Wine must prefer to its own.
export TALVORN_NATIVE_DLLS=mapi32
. "$top/scripts/wine-env.sh"
"$top/scripts/wine-prefix.sh" "$BUILD_DIR"
"$top/scripts/register-stub-connector.sh" "$BUILD_DIR"

winpath() { printf 'Z:%s' "$1" | tr / '\\'; }

# setup.ini is read from the current directory of regsvr32.
cp "$top/tools/samples/setup.ini" "$BUILD_DIR/addin/setup.ini"
(cd "$BUILD_DIR/addin" && wine regsvr32 /s TalvornAddin.dll)
printf 'registered %s from %s\n' "$(winpath "$BUILD_DIR/addin/TalvornAddin.dll")" "$(winpath "$BUILD_DIR/addin/setup.ini")"
status=0
wine "$BUILD_DIR/tools/hostsim/hostsim.exe" --host word --property "Kunde=Muster GmbH" \
    "$(winpath "$top/tools/samples/Angebot 2024.docx")" || status=$?

echo
set --
for item in "$top"/tools/samples/outlook/*.item; do
    case "$item" in *signiert*) continue ;; esac
    set -- "$@" "$(winpath "$item")"
done
wine "$BUILD_DIR/tools/hostsim/hostsim.exe" --host outlook "$@" || status=$?
if [ "$signed_mail" = yes ]; then
    echo
    wine "$BUILD_DIR/tools/hostsim/hostsim.exe" --host outlook \
        "$(winpath "$top/tools/samples/outlook/10-signiert.item")" || status=$?
    echo
    wine "$BUILD_DIR/tools/hostsim/hostsim.exe" --host outlook --button Attachment --choose 1 \
        "$(winpath "$top/tools/samples/outlook/11-anhaenge.item")" || status=$?
fi
wineserver -w
exit $status
