#!/bin/sh
# Has the Outlook capture stage a mail as a message file and Debian's msgconvert, a reader that
# shares no code with the add-in or the simulated MAPI, turn it into a MIME mail: subject, sender
# and recipient must come back. Usage: msgconvert-reads-staged-mail.sh BUILD_DIR outlook_capture_tests.exe
set -eu
BUILD_DIR=$1
tests=$2
scripts=$(cd "$(dirname "$0")/../../../scripts" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Wine's drive Z: is the Unix root.
TALVORN_MSG_EXPORT="Z:$(printf '%s' "$work" | tr / '\\')" TALVORN_NATIVE_DLLS=mapi32 \
    "$scripts/wine-run.sh" "$BUILD_DIR" "$tests" \
    --gtest_filter=OutlookCaptureTest.StagedMailForAnIndependentReader >"$work/test.log" 2>&1 ||
    { cat "$work/test.log"; exit 1; }
msgconvert --outfile "$work/mail.eml" "$work/mail.msg"

status=0
expect() {
    LC_ALL=C grep -a -q -- "$1" "$work/mail.eml" || { echo "missing in the converted mail: $1"; status=1; }
}
expect "^Subject: Angebot Q3"
expect "^From: Erika Muster <erika.muster@example.org>"
expect "^To: Max Beispiel <max.beispiel@example.com>"
[ $status -eq 0 ] || head -n 12 "$work/mail.eml"
exit $status
