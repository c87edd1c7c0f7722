#!/bin/sh
# Writes the sample mail through the simulated mapi32.dll and has Debian's msgconvert, a reader
# that shares no code with the simulator, turn it into a MIME mail: subject, sender and both
# recipients must come back. Usage: msgconvert-reads-sample.sh BUILD_DIR write_sample_message.exe
set -eu
BUILD_DIR=$1
writer=$2
scripts=$(cd "$(dirname "$0")/../../../scripts" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Wine's drive Z: is the Unix root.
TALVORN_NATIVE_DLLS=mapi32 "$scripts/wine-run.sh" "$BUILD_DIR" "$writer" \
    "Z:$(printf '%s' "$work" | tr / '\\')\\sample.msg"
msgconvert --outfile "$work/sample.eml" "$work/sample.msg"

status=0
expect() {
    LC_ALL=C grep -a -q -- "$1" "$work/sample.eml" || { echo "missing in the converted mail: $1"; status=1; }
}
expect "^Subject: Angebot f.r Q3"   # msgconvert writes the umlaut unencoded, in Latin-1
expect "^From: Erika Muster <erika.muster@example.org>"
expect "^To: Max Beispiel <max.beispiel@example.com>"
expect "^Cc: Ina Kopie <ina.kopie@example.net>"
expect "filename=preise.txt"
expect "^Sehr geehrte Damen und Herren"
expect "^Subject: Vorige Nachricht"   # the forwarded mail, attached as an embedded message
[ $status -eq 0 ] || head -n 12 "$work/sample.eml"
exit $status
