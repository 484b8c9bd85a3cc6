#!/bin/sh
# The manual pages are well-formed, and the documents name what the programs have.
# shellcheck disable=SC2016,SC2086 # Markdown's quotes; a list of words
set -eu
. "$1/tests/support/script.sh"
export LC_ALL=C
page=$source/docs/zorv-mpirun.1
report=$source/docs/zorv-mpirun-info.1

# What the sources look up; a call may be spread over lines.
settings=$(find "$source" -path "$source/build" -prune -o -path "$source/tests" -prune -o \
    -path "$source/common/env" -prune -o -name '*.cpp' -exec cat {} + | tr -s '\n ' ' ' |
    grep -oE '(env(String|Path|Flag|IsSet)|uncachedValue|logFileName)\( ?"[A-Z0-9_]+"' |
    cut -d'"' -f2 | sort -u)
same "settings.md" "$settings" "$(sed -nE \
    's/^\| [A-Z0-9_]+ \| `ZORV_([A-Z0-9_]+)`, `PELK_\1`, `TALVORA_\1` \|.*/\1/p' \
    "$source/docs/settings.md" | sort)"
same "settings of the manual page" "$settings" "$(sed -nE \
    's/^\.BR ZORV_([A-Z0-9_]+) ", " PELK_\1 ", " TALVORA_\1 " .*/\1/p' "$page" | sort)"
same "settings of the report" "$settings" \
    "$(sed -nE 's/^ *\{"([A-Z0-9_]+)", Kind.*/\1/p' "$source/mpirun-info/settings.cpp" | sort)"

same "options of the manual page" "$(sed -nE 's/^ *\{"(--zorv[a-z]+)", .*/\1/p' \
    "$source/backend/backendoptions.cpp" "$source/zorv-debugger/zorvdebuggeroptions.cpp" | sort)" \
    "$(grep -A1 '^\.TP' "$page" | sed 's,\\-,-,g' | sed -nE 's/^\.BR (--zorv[a-z]+).*/\1/p' | sort)"

for document in "$source/README.md" "$source"/docs/*.md; do
    for target in $(grep -oE '\]\([^)#:]+\)' "$document" | tr -d ']()'); do
        [ -e "$(dirname "$document")/$target" ] || fail "$document: a link to $target"
    done
done
checked=
for tool in "mandoc -T lint" "groff -man -ww -z -Tutf8"; do
    command -v "${tool%% *}" >/dev/null || continue
    same "$tool" "" "$($tool "$page" "$report" 2>&1 || :)"
    checked=yes
done
[ "$checked" ] || skip "neither mandoc nor groff is installed; the rest is as it should be"
