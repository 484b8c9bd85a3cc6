#!/bin/sh
# The manual pages are well-formed, and the documents name what the programs have.
# Usage: documents.sh SOURCE_DIRECTORY
set -eu
. "$1/tests/support/script.sh"

page=$source/docs/zorv-mpirun.1
report=$source/docs/zorv-mpirun-info.1

# What the sources look up; a call may be spread over lines.
find "$source" -path "$source/build" -prune -o -path "$source/tests" -prune -o \
    -path "$source/common/env" -prune -o -name '*.cpp' -exec cat {} + |
    tr -s '\n ' ' ' |
    grep -oE '(env(String|Path|Flag|IsSet)|uncachedValue|logFileName)\( ?"[A-Z0-9_]+"' |
    sed -E 's/^envString/text/; s/^envPath/path/; s/^logFileName/path/; s/^envFlag/switch/
        s/^(envIsSet|uncachedValue)/presence/; s/^([a-z]+)\( ?"(.*)"$/\2 \1/' |
    LC_ALL=C sort -u | awk '{ kinds[$1] = kinds[$1] ", " $2 }
        END { for (name in kinds) print name, substr(kinds[name], 3) }' | LC_ALL=C sort >"$work/settings"

# shellcheck disable=SC2016 # Markdown's quotes
sed -nE 's/^\| [A-Z0-9_]+ \| `ZORV_([A-Z0-9_]+)`, `PELK_\1`, `TALVORA_\1` \| ([a-z, ]+) \|.*/\1 \2/p' \
    "$source/docs/settings.md" >"$work/settings.md"
sed -nE 's/^\.BR ZORV_([A-Z0-9_]+) ", " PELK_\1 ", " TALVORA_\1 " \(([a-z, ]+)\)"$/\1 \2/p' \
    "$page" >"$work/settings.1"
for list in settings.md settings.1; do
    same "$list" "" "$(LC_ALL=C sort "$work/$list" | diff "$work/settings" - || :)"
done
same "settings of the report" "$(cut -d' ' -f1 "$work/settings")" \
    "$(sed -nE 's/^ *\{"([A-Z0-9_]+)", Kind.*/\1/p' "$source/mpirun-info/settings.cpp" | LC_ALL=C sort)"

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

same "options of the report's manual page" \
    "$(grep -oE '^ *"  --[a-z-]+' "$source/mpirun-info/main.cpp" | tr -d ' "' | LC_ALL=C sort)" \
    "$(grep -A1 '^\.TP' "$report" | sed 's/\\-/-/g' | grep -oE -e '--[a-z]+(-[a-z]+)*' | LC_ALL=C sort)"

for document in "$source/README.md" "$source"/docs/*.md; do
    for target in $(grep -oE '\]\([^)#:]+\)' "$document" | tr -d ']()'); do
        [ -e "$(dirname "$document")/$target" ] || fail "$document: a link to $target"
    done
done

checked=
for tool in "mandoc -T lint" "groff -man -ww -z -Tutf8"; do
    command -v "${tool%% *}" >/dev/null || continue
    checked=yes
    # shellcheck disable=SC2086 # a list of words
    same "$tool" "" "$($tool "$page" "$report" 2>&1 || :)"
done
[ "$checked$failures" != 0 ] ||
    skip "neither mandoc nor groff is installed; the rest is as it should be"
