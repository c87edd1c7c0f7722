#!/bin/sh
# The demo: registers the built add-in in the build's Wine prefix with regsvr32 from a folder
# holding the sample setup.ini (as an administrator installs it), then archives the sample
# document through the simulated Word host, which loads the add-in over COM, then the sample Outlook
# items through the simulated Outlook (the signed mail through the simulated MAPI library, which
# hostsim registers for its run), and last the first attachment of the sample with attachments,
# chosen in the attachment dialog. Everything runs on one virtual display, so that the dialog has
# somewhere to appear and every Wine process of the run shares it.
set -eu
if [ -z "${TALVORN_IN_XVFB:-}" ]; then
    TALVORN_IN_XVFB=1 exec xvfb-run -a sh "$0" "$@"
fi
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
    set -- "$@" "$(winpath "$item")"
done
wine "$BUILD_DIR/tools/hostsim/hostsim.exe" --host outlook "$@" || status=$?
echo
wine "$BUILD_DIR/tools/hostsim/hostsim.exe" --host outlook --button Attachment \
    --choose 1 "$(winpath "$top/tools/samples/outlook/11-anhaenge.item")" || status=$?
wineserver -w
exit $status
