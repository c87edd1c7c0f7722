#!/bin/sh
# Builds the installation package from a build folder's output.
# Usage: build-msi.sh BUILD_DIR OUTPUT.msi [VERSION]
# VERSION defaults to the product version in the add-in module's own version resource.
set -eu
BUILD_DIR=$(cd "$1" && pwd)
out=$2
here=$(cd "$(dirname "$0")" && pwd)
version=${3:-$(python3 "$here/dll-version.py" "$BUILD_DIR/addin/TalvornAddin.dll")}

# wixl takes file sources relative to the folder it runs in.
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
for file in TalvornAddin.dll resource.bin resource_attachment.bin resource_setting.bin \
            resource_info.bin lang_en.bin; do
    cp "$BUILD_DIR/addin/$file" "$stage/"
done
cp "$BUILD_DIR/installer/TalvornSetupActions.dll" "$here/setup.ini" "$here/TalvornAddin.wxs" "$stage/"
(cd "$stage" && wixl --arch x64 --define "Version=$version" --output package.msi TalvornAddin.wxs)
# wixl writes the Execute="rollback" actions as immediate ones; their type is set here: a DLL in
# the Binary table (1), result ignored (64), rollback (256), in the script (1024), not
# impersonated (2048).
for action in UndoRegisterAddin RedoRegisterAddin; do
    msibuild "$stage/package.msi" -q "UPDATE CustomAction SET Type = 3393 WHERE Action = '$action'"
done
mkdir -p "$(dirname "$out")"
mv "$stage/package.msi" "$out"
echo "$out: version $version"
