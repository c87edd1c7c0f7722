#!/bin/sh
# Debian's msgconvert, a reader that shares no code with the simulators, must read back the sample
# Outlook items as message files: subjects, senders, recipients, a body and an attachment.
#   convert: each sample item written by itemtomsg.exe (the simulated Outlook's SaveAs).
#   archive: the samples the demo archives (all but the signed mail), selected in hostsim.exe as
#            Outlook and archived by the add-in, registered in the build's prefix as the demo does;
#            every staged message file named in the hand-off documents is read, and hostsim must
#            report that the add-in gave back every reference, MAPI object and MAPI buffer.
# Usage: msgconvert-reads-items.sh BUILD_DIR convert|archive
set -eu
BUILD_DIR=$(cd "$1" && pwd)
mode=$2
top=$(cd "$(dirname "$0")/../../.." && pwd)
export TALVORN_NATIVE_DLLS=mapi32
. "$top/scripts/wine-env.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
winpath() { printf 'Z:%s' "$1" | tr / '\\'; }

count=0
if [ "$mode" = convert ]; then
    for item in "$top"/tools/samples/outlook/*.item; do
        name=$(basename "$item" .item)
        wine "$BUILD_DIR/tools/outlooksim/itemtomsg.exe" "$(winpath "$item")" \
            "$(winpath "$work/$name.msg")"
        count=$((count + 1))
    done
else
    cp "$top/tools/samples/setup.ini" "$BUILD_DIR/addin/setup.ini"
    (cd "$BUILD_DIR/addin" && wine regsvr32 /s TalvornAddin.dll)
    set --
    for item in "$top"/tools/samples/outlook/*.item; do
        case "$item" in *signiert*) continue ;; esac
        set -- "$@" "$(winpath "$item")"
    done
    # Without a display a message box the add-in shows answers at once instead of waiting.
    env -u DISPLAY wine "$BUILD_DIR/tools/hostsim/hostsim.exe" --host outlook "$@" >"$work/hostsim.txt" ||
        { cat "$work/hostsim.txt"; exit 1; }
    LC_ALL=C grep -a -o '<path>[^<]*\.msg</path>' "$work/hostsim.txt" | sed 's/<[/]*path>//g' |
        tr -d '\r' >"$work/staged.txt"
    while IFS= read -r staged; do
        count=$((count + 1))
        cp "$(winepath -u "$staged")" "$work/staged-$count.msg"
    done <"$work/staged.txt"
    [ "$count" -eq $# ] || { echo "staged $count message files for $# items"; exit 1; }
    # Every reference, MAPI object and MAPI buffer the add-in took must have come back.
    LC_ALL=C grep -a -q "^references still held on Outlook's objects: none; MAPI session objects still alive: 0; MAPI buffers not freed: 0" \
        "$work/hostsim.txt" || { grep -a "^references still held" "$work/hostsim.txt"; exit 1; }
fi

for msg in "$work"/*.msg; do
    msgconvert --outfile "${msg%.msg}.eml" "$msg"
done
cat "$work"/*.eml >"$work/all.eml"

status=0
expect() {
    LC_ALL=C grep -a -q -- "$1" "$work/all.eml" || { echo "missing in the converted items: $1"; status=1; }
}
# msgconvert writes umlauts unencoded, in Latin-1: '.' stands for them.
expect "^Subject: Angebot Nr. 2024-117 f.r die Lagerregale"
expect "^From: Jonas Weber <j.weber@weber-lagertechnik.example>"
expect "^To: Anna Beispiel <anna.beispiel@muster-logistik.example>, Peter Kaufmann"
expect "^Cc: Einkauf Muster Logistik <einkauf@muster-logistik.example>"
expect "^Die Preise gelten bis zum 30. Juni 2024."
expect 'filename="Angebot 2024-117.txt"'
expect "^Subject: Freigabe Reisekosten M.rz"
expect "^From: Erika Muster"
expect "^Subject: Dr. Sabine Lindner"
expect "^Subject: R.ckruf Spedition Hartmann"
expect "^Subject: Telefonat mit Herrn Kaufmann zum Angebot 2024-117"
expect "^Subject: Wochenbesprechung Vertrieb"
expect "^Subject: Abnahme Regalanlage Halle 3"
expect "^To: Anna Beispiel <anna.beispiel@muster-logistik.example>, Dr. Sabine Lindner"
expect "^Subject: Pr.fprotokolle Regalanlage zusammenstellen"
expect "^Subject: Aufgabenanfrage: Lieferschein Spedition Hartmann pr.fen"
expect "^From: Peter Kaufmann <p.kaufmann@muster-logistik.example>"
echo "$count message files read"
exit $status
