#!/bin/sh
# Wine's own script host (cscript) as an independent automation client of the add-in, registered
# in the build's prefix as the demo registers it: connector.vbs calls the connector automation
# object with wrong and right arguments and archives a staged and a foreign file, which must reach
# the stub connector as one URL naming the automation caller's start-application number 7.
# Usage: connector-cscript.sh BUILD_DIR
set -eu
BUILD_DIR=$(cd "$1" && pwd)
here=$(cd "$(dirname "$0")" && pwd)
top=$(cd "$here/../.." && pwd)
. "$top/scripts/wine-env.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
winpath() { printf 'Z:%s' "$1" | tr / '\\'; }

cp "$top/tools/samples/setup.ini" "$BUILD_DIR/addin/setup.ini"
(cd "$BUILD_DIR/addin" && wine regsvr32 /s TalvornAddin.dll)

# The script, the add-in and the connector it starts share a temporary folder of their own.
mkdir -p "$work/temp/td_temp_inbox/td_data_4711"
printf 'foreign' >"$work/Bericht.txt"
printf 'staged' >"$work/temp/td_temp_inbox/td_data_4711/Angebot.docx"
temp=$(winpath "$work/temp")
# Without a display a message box would answer at once instead of waiting.
env -u DISPLAY wine cmd /c "set TEMP=$temp\\&& set TMP=$temp\\&& cscript //nologo $(winpath "$here/connector.vbs") $temp\\td_temp_inbox\\td_data_4711\\Angebot.docx $(winpath "$work/Bericht.txt")" \
    >"$work/cscript.txt" 2>&1 || status=$?
tr -d '\r' <"$work/cscript.txt"
[ "${status:-0}" -eq 0 ] || { echo "connector.vbs: ${status:-0} checks failed"; exit 1; }

# The shell starts the connector without waiting for it.
record="$work/temp/connector_urls.txt"
tries=0
while [ ! -s "$record" ] && [ $tries -lt 50 ]; do
    sleep 0.2
    tries=$((tries + 1))
done
cat "$record" 2>/dev/null || { echo "the connector was not started"; exit 1; }
grep -q '^talvorn:\\\\di\$appid=42\$configid=7\$startapp=7\$files=td_data_4711,td_data_[0-9]*$' \
    "$record" || { echo "unexpected connector URL"; exit 1; }
# The staged file keeps its folder; the foreign file is not copied: its hand-off, in a fresh
# folder, names it where it is.
grep -a -q 'Angebot.docx</path>' "$work/temp/td_temp_inbox/td_data_4711/td_data_4711.xml" ||
    { echo "no hand-off beside the staged file"; exit 1; }
grep -a -l -r 'Bericht.txt</path>' "$work/temp/td_temp_inbox" >/dev/null ||
    { echo "no hand-off names the foreign file"; exit 1; }
