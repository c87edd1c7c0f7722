#!/bin/sh
# The Group Policy templates: well-formed, and every text, presentation and control the ADMX file
# names exists in each language's ADML file, each control naming an element of its policy.
# Usage: policies-xmllint.sh POLICIES_DIR
set -eu
dir=$1
admx="$dir/TalvornDorvane.admx"
xmllint --noout "$admx" "$dir"/*/TalvornDorvane.adml
count() { xmllint --xpath "count($2)" "$1"; }
failures=0
for adml in "$dir"/de-DE/TalvornDorvane.adml "$dir"/en-US/TalvornDorvane.adml; do
    for kind in string presentation; do
        for id in $(grep -o "\$($kind\.[A-Za-z_]*)" "$admx" | sed "s/^\$($kind\.\(.*\))$/\1/" | sort -u); do
            if [ "$(count "$adml" "//*[local-name()='$kind'][@id='$id']")" -ne 1 ]; then
                echo "$adml: no $kind $id"
                failures=$((failures + 1))
            fi
        done
    done
    for ref in $(xmllint --xpath "//*[local-name()='presentation']/*/@refId" "$adml" | sed 's/ refId="\([^"]*\)"/\1 /g'); do
        if [ "$(count "$admx" "//*[local-name()='elements']/*[@id='$ref']")" -ne 1 ]; then
            echo "$adml: control $ref names no element of the ADMX file"
            failures=$((failures + 1))
        fi
    done
done
# Both languages define the same texts.
ids() { xmllint --xpath "//*[local-name()='string']/@id" "$1" | tr ' ' '\n' | sort; }
if [ "$(ids "$dir/de-DE/TalvornDorvane.adml")" != "$(ids "$dir/en-US/TalvornDorvane.adml")" ]; then
    echo "the German and English texts differ in their ids"
    failures=$((failures + 1))
fi
[ "$failures" -eq 0 ] || exit 1
echo "policy templates: consistent"
