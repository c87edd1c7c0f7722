#!/bin/sh
# The installation package as an administrator uses it, under Wine's own msiexec in a fresh prefix
# of its own: a silent install with the shipped setup.ini and one configured by properties, the
# add-in archiving a document through the simulated Word from the installed folder, an upgrade to
# a newer package that keeps the configuration, a failed install that rolls back, and uninstalls that leave nothing behind.
# Usage: installer-msiexec.sh BUILD_DIR
set -eu
BUILD_DIR=$(cd "$1" && pwd)
top=$(cd "$(dirname "$0")/../.." && pwd)
work="$BUILD_DIR/installer/msiexec-test"
# A prefix of its own, made afresh each run: nothing of an earlier install or of the other tests'
# registrations can make a check pass.
rm -rf "$work"
mkdir -p "$work"
export TALVORN_WINEPREFIX="$work/prefix"
export TALVORN_NATIVE_DLLS=mapi32
. "$top/scripts/wine-env.sh"
trap 'wineserver -k >/dev/null 2>&1 || true' EXIT
winpath() { printf 'Z:%s' "$1" | tr / '\\'; }
fail() { echo "FAILED: $*"; exit 1; }

version=$(python3 "$top/installer/dll-version.py" "$BUILD_DIR/addin/TalvornAddin.dll")
newer=$(echo "$version" | awk -F. '{ printf "%d.%d.%d.%d", $1, $2, $3 + 1, $4 }')
sh "$top/installer/build-msi.sh" "$BUILD_DIR" "$work/old.msi"
sh "$top/installer/build-msi.sh" "$BUILD_DIR" "$work/new.msi" "$newer"

wineboot -i >/dev/null 2>&1
wineserver -w
sh "$top/scripts/register-stub-connector.sh" "$BUILD_DIR"

folder="$WINEPREFIX/drive_c/Program Files/talvorn/dorvane"
addin='Software\\talvorn\\Talvorn.DorvaneAddin'
clsid='Software\\Classes\\CLSID\\{9BEC1BC7-AFD5-4B83-B6FF-1AB8711015D9}'
office='Software\\Microsoft\\Office'

# The registry as the prefix stores it, read once Wine has written it out.
keys() {
    wineserver -w
    sed -n 's/^\[\(.*\)\] [0-9]*$/\1/p' "$WINEPREFIX/system.reg" "$WINEPREFIX/user.reg" | sort
}
# value KEY NAME: the data of one value of a machine key ("@" for the default value) as stored.
value() {
    name="\"$2\"="
    [ "$2" != @ ] || name="@="
    K="[$1] " N="$name" awk '
        index($0, ENVIRON["K"]) == 1 { inside = 1; next }
        /^\[/ { inside = 0 }
        inside && index($0, ENVIRON["N"]) == 1 { print substr($0, length(ENVIRON["N"]) + 1) }
    ' "$WINEPREFIX/system.reg" | sed 's/^"\(.*\)"$/\1/'
}
expect() {
    actual=$(value "$1" "$2")
    [ "$actual" = "$3" ] || fail "$1 $2 is '$actual', expected '$3'"
}
has_key() { keys | grep -qxF "$1"; }
# msiexec COMMAND-LINE: msiexec started through a batch file, so that it gets the command line
# exactly as an administrator types it, quotes included.
msiexec() {
    printf '@msiexec %s\r\n@exit /b %%errorlevel%%\r\n' "$1" >"$work/step.cmd"
    status=0
    wine cmd /c "$(winpath "$work/step.cmd")" >/dev/null 2>&1 || status=$?
    wineserver -w
    return $status
}
old=$(winpath "$work/old.msi")
new=$(winpath "$work/new.msi")
# Wine's msiexec drops quotes inside property values; the label gets its quotes back on the way in.
target='PARAMS1="label=Angebote Nord appid=42 configid=7"'

keys >"$work/keys-before.txt"
nothing_left() {
    keys >"$work/keys-after.txt"
    [ ! -e "$folder" ] || fail "$1 left $(ls "$folder")"
    left=$(comm -13 "$work/keys-before.txt" "$work/keys-after.txt" | grep -i -e talvorn -e '\\Addins' || true)
    [ -z "$left" ] || fail "$1 left the keys $left"
}

echo "== silent install with the shipped setup.ini"
msiexec "/i $old /qn /l*v $(winpath "$work/install.log")" ||
    fail "install: msiexec $status"
for file in TalvornAddin.dll setup.ini resource.bin resource_attachment.bin resource_setting.bin \
            resource_info.bin lang_en.bin; do
    [ -f "$folder/$file" ] || fail "$file not installed"
done
cmp -s "$folder/setup.ini" "$top/installer/setup.ini" || fail "setup.ini changed without properties"
expect "$clsid\\\\InprocServer32" @ 'C:\\Program Files\\talvorn\\dorvane\\TalvornAddin.dll'
expect 'Software\\Classes\\Talvorn.DorvaneAddin\\CLSID' @ '{9BEC1BC7-AFD5-4B83-B6FF-1AB8711015D9}'
for host in Excel PowerPoint Word Outlook; do
    expect "$office\\\\$host\\\\Addins\\\\Talvorn.DorvaneAddin" LoadBehavior dword:00000003
done
expect "$addin" Attachments dword:00000001
expect "$addin" Dir 'C:\\Program Files\\talvorn\\dorvane'
[ -z "$(value "$addin" Params1)" ] || fail "a storage target without properties"

echo "== uninstall"
msiexec "/x $old /qn" || fail "uninstall: msiexec $status"
nothing_left "uninstall"

echo "== silent install configured by properties"
msiexec "/i $old /qn MSEXCEL=no MSPOWERPOINT=no MSOUTLOOK=no COM=no $target ATTACHMENTS=no \
DELETEARCDOCS=yes NOSETTINGS=yes MULTIPROCESS=yes L=en" || fail "install with properties: msiexec $status"
expect "$addin" Params1 'label=\"Angebote Nord\" appid=42 configid=7'
[ -z "$(value "$addin" Params2)" ] || fail "a second storage target"
expect "$addin" Attachments dword:00000000
expect "$addin" DeleteArcDocs dword:00000001
expect "$addin" Nosettings dword:00000001
expect "$addin" MultiProcess dword:00000001
expect "$addin" l en
expect "$office\\\\Word\\\\Addins\\\\Talvorn.DorvaneAddin" LoadBehavior dword:00000003
for host in Excel PowerPoint Outlook; do
    ! has_key "$office\\\\$host\\\\Addins\\\\Talvorn.DorvaneAddin" || fail "$host registered"
done
! has_key 'Software\\Classes\\Talvorn.DorvaneConnectorDX2COM' || fail "connector class registered"

echo "== archiving through the installed add-in"
wine "$BUILD_DIR/tools/hostsim/hostsim.exe" --host word \
    "$(winpath "$top/tools/samples/Angebot 2024.docx")" >"$work/hostsim.txt" 2>&1 ||
    { cat "$work/hostsim.txt"; fail "hostsim"; }
grep -q 'connector received: talvorn:\\\\di\$appid=42\$configid=7\$startapp=2\$files=td_data_' \
    "$work/hostsim.txt" || { cat "$work/hostsim.txt"; fail "the connector was not started"; }

echo "== upgrade to $newer"
# The configuration so far is kept; a property given now goes on top of it.
msiexec "/i $new /qn DELETEARCDOCS=no" || fail "upgrade: msiexec $status"
# Wine records the product twice (Uninstall and the installer's own data): both must be the new one.
versions=$(grep -A1 '^"DisplayName"="talvorn dorvane Office Integration"' "$WINEPREFIX/system.reg" |
    sed -n 's/^"DisplayVersion"="\(.*\)"$/\1/p' | sort -u)
[ "$versions" = "$newer" ] || fail "installed versions after the upgrade: $versions"
expect "$addin" Params1 'label=\"Angebote Nord\" appid=42 configid=7'
expect "$addin" Attachments dword:00000000
expect "$addin" DeleteArcDocs dword:00000000
expect "$addin" l en
! has_key "$office\\\\Excel\\\\Addins\\\\Talvorn.DorvaneAddin" || fail "Excel registered after the upgrade"
[ -f "$folder/TalvornAddin.dll" ] || fail "the upgrade lost the module"
msiexec "/x $new /qn" || fail "uninstall after the upgrade: msiexec $status"
nothing_left "uninstall after upgrade"

echo "== a failed registration rolls the install back"
# No host and no connector class: the registration refuses (its message box returns at once
# without a display).
! (unset DISPLAY; msiexec "/i $old /qn MSWORD=no MSEXCEL=no MSPOWERPOINT=no MSOUTLOOK=no COM=no") ||
    fail "an install whose registration failed succeeded"
nothing_left "the failed install"
# The prefix (some 700 MB) is kept only when a check failed, for a look at what went wrong.
wineserver -k >/dev/null 2>&1 || true
rm -rf "$WINEPREFIX"
echo "installer-msiexec: all checks passed"
