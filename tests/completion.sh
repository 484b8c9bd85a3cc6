#!/bin/sh
# The bash completion, driven as bash drives it.
# Usage: completion.sh SOURCE_DIRECTORY
set -eu
. "$1/tests/support/script.sh"

command -v bash >/dev/null || skip "bash is not installed"

# complete ENVIRONMENT... -- WORD...: the completions of the last word, sorted.
completions() {
    variables=
    while [ "$1" != -- ]; do
        variables="$variables $1"
        shift
    done
    shift
    # shellcheck disable=SC2016,SC2086 # the script is bash's; a list of words
    env $variables \
        bash --norc -c '
            # Outside of a completion there are no options to change.
            compopt() { echo "compopt $*"; }
            . "$1"
            shift
            COMP_WORDS=(program "$@")
            COMP_CWORD=$#
            "${FUNCTION-_zorv_mpirun}"
            printf "%s\n" "${COMPREPLY[@]}" | LC_ALL=C sort' \
        bash "$source/packaging/bash-completion/zorv-mpirun" "$@"
}

# Every spelling of the option tables, and no other.
tables="$source/backend/backendoptions.cpp $source/zorv-debugger/zorvdebuggeroptions.cpp"
# shellcheck disable=SC2086 # a list of words
long=$(grep -hoE '\{"--zorv[a-z]+"' $tables | tr -d '{"' | LC_ALL=C sort)
# shellcheck disable=SC2086
short=$(grep -hoE '\{"--zorv[a-z]+", "[^"]+"' $tables | cut -d'"' -f4 | tr ' ' '\n')
same "long options" "$long" "$(completions -- -)"
same "all options" "$(printf '%s\n' "$long" "$short" -h --help '-?' -- | LC_ALL=C sort)" \
    "$(completions -- --zorvmanuallaunch -)"

same "a prefix" "--zorvport
--zorvprogress" "$(completions -- --zorvp)"
same "after a switch and a value" "--zorvport" "$(completions -- --zorvdebug --zorvhost x --zorvpor)"
same "the switch of the environment" "--port" "$(completions PELK_MANUAL_LAUNCH=1 -- --por)"
same "the first variable wins" "" \
    "$(completions ZORV_MANUAL_LAUNCH=OFF PELK_MANUAL_LAUNCH=1 -- --por)"
same "a short spelling and its value" "--port" \
    "$(completions TALVORA_MANUAL_LAUNCH= -- -host x --por)"
same "the options have ended" "" "$(completions -- -np 2 --zorvp)"
same "short spellings end them too" "" "$(completions -- -host x --zorvp)"
same "an empty word ends them" "" "$(completions -- '' --zorvp)"
same "a value that looks like an option" "--zorvport" "$(completions -- --zorvlog -x --zorvpor)"

mkdir "$work/directory"
: >"$work/dir-file"
same "a directory" "compopt -o filenames
$work/directory" "$(completions -- --zorvshareddirectory "$work/dir")"
same "no file names for a number" "compopt +o default" "$(completions -- --zorvport '')"

info=FUNCTION=_zorv_mpirun_info
same "the report's own options and the launcher's" "--json
--zorvport" "$(completions $info -- --j; completions $info -- --zorvpor)"
same "after the report's options" "--zorvport" \
    "$(completions $info -- --json --route-to x zorv-mpirun --zorvpor)"
same "the launcher's command line has begun" "" "$(completions $info -- zorv-mpirun --j)"
