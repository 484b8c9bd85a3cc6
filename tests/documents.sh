#!/bin/sh
# The manual page is well-formed, and the documents name what the program has.
# Usage: documents.sh SOURCE_DIRECTORY
set -eu
. "$1/tests/support/script.sh"

page=$source/docs/zorv-mpirun.1

# As "NAME kind", all kinds of one setting in a line.
kinds() {
    LC_ALL=C sort -u | awk '$1 == name { printf ", %s", $2; next }
        { if (name) print ""; name = $1; printf "%s", $0 }
        END { print "" }'
}

# What the sources look up; a call may be spread over lines.
find "$source" -path "$source/build" -prune -o -path "$source/tests" -prune -o \
    -path "$source/common/env" -prune -o -name '*.cpp' -exec cat {} + |
    tr -s '\n ' ' ' |
    grep -oE '(env(String|Path|Flag|IsSet)|uncachedValue|logFileName)\( ?"[A-Z0-9_]+"' |
    sed -E 's/^envString/text/; s/^envPath/path/; s/^logFileName/path/; s/^envFlag/switch/
        s/^(envIsSet|uncachedValue)/presence/; s/^([a-z]+)\( ?"(.*)"$/\2 \1/' |
    kinds >"$work/settings"

# shellcheck disable=SC2016 # Markdown's quotes
sed -nE 's/^\| [A-Z0-9_]+ \| `ZORV_([A-Z0-9_]+)`, `PELK_\1`, `TALVORA_\1` \| ([a-z, ]+) \|.*/\1 \2/p' \
    "$source/docs/settings.md" | LC_ALL=C sort >"$work/settings.md"
same "settings of settings.md" "" "$(diff "$work/settings" "$work/settings.md" || :)"
sed -nE 's/^\.BR ZORV_([A-Z0-9_]+) ", " PELK_\1 ", " TALVORA_\1 " \(([a-z, ]+)\)"$/\1 \2/p' \
    "$page" | LC_ALL=C sort >"$work/settings.1"
same "settings of the manual page" "" "$(diff "$work/settings" "$work/settings.1" || :)"

# Options, each with its short spellings.
sed -nE 's/^ *\{"(--zorv[a-z]+)", "([^"]*)".*/\1 \2/p' "$source/backend/backendoptions.cpp" \
    "$source/zorv-debugger/zorvdebuggeroptions.cpp" | sed 's/ $//' | LC_ALL=C sort >"$work/options"
awk '{ gsub(/\\-/, "-") }
    /^\.(SH|TP)/ { if (line) print line; line = ""; short = 0; tag = /TP/; next }
    tag { if (/^\.BR --zorv/) line = $2; tag = 0; next }
    /^Short: / { short = 1; sub(/^Short: /, "") }
    short && line { gsub(/\\f[BR]|[,.]/, ""); line = line " " $0 }' "$page" |
    LC_ALL=C sort >"$work/options.1"
same "options of the manual page" "" "$(diff "$work/options" "$work/options.1" || :)"

# Links between the documents.
for document in "$source/README.md" "$source"/docs/*.md; do
    grep -oE '\]\([^)#:]+\)' "$document" | tr -d ']()' | while read -r target; do
        [ -e "$(dirname "$document")/$target" ] || echo "$document: $target"
    done
done >"$work/links"
same "links that lead nowhere" "" "$(cat "$work/links")"

checked=
if command -v mandoc >/dev/null; then
    checked=yes
    same "mandoc" "" "$(mandoc -T lint "$page" 2>&1 || :)"
fi
if command -v groff >/dev/null; then
    checked=yes
    same "groff" "" "$(groff -man -ww -z -Tutf8 "$page" 2>&1 || :)"
fi
if [ -z "$checked" ] && [ "$failures" -eq 0 ]; then
    skip "neither mandoc nor groff is installed; the rest is as it should be"
fi
