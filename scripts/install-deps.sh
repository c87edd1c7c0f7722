#!/bin/sh
# Installs what the build and the tests need, and nothing when all of it is there already.
set -eu
# msgconvert (libemail-outlook-message-perl, with libemail-address-perl, which it only recommends)
# reads back the message files the simulated MAPI writes; python3 makes the language files.
# The simulated Office hosts read document packages through mingw-w64's zlib.
# wixl and msitools build and read the installation package, xmllint checks the policy templates.
packages="python3 cmake make g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 wine wine64 xvfb xauth googletest \
libemail-outlook-message-perl libemail-address-perl libz-mingw-w64-dev wixl msitools libxml2-utils"
missing=""
for p in $packages; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
[ -z "$missing" ] && exit 0
echo "installing:$missing"
SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
# shellcheck disable=SC2086
$SUDO apt-get install -y -qq --no-install-recommends $missing >/dev/null
