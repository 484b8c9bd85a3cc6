#!/bin/sh
# The bash completion, driven as bash drives it.
# shellcheck disable=SC2016,SC2086 # the script is bash's; lists of words
set -eu
. "$1/tests/support/script.sh"

command -v bash >/dev/null || skip "bash is not installed"

# offers WHAT EXPECTED VARIABLES WORD...: for the last word that is offered, sorted.
offers() {
    what=$1 expected=$2 variables=$3
    shift 3
    same "$what" "$expected" "$(env $variables bash --norc -c '
        . "$0"
        COMP_WORDS=(program "$@")
        COMP_CWORD=$#
        "${FUNCTION-_zorv_mpirun}"
        printf "%s\n" "${COMPREPLY[@]}" | LC_ALL=C sort' \
        "$source/packaging/bash-completion/zorv-mpirun" "$@")"
}

# Every spelling of the option tables, and no other.
tables="$source/backend/backendoptions.cpp $source/zorv-debugger/zorvdebuggeroptions.cpp"
long=$(grep -hoE '\{"--zorv[a-z]+"' $tables | tr -d '{"' | LC_ALL=C sort)
short=$(grep -hoE '\{"--zorv[a-z]+", "[^"]+"' $tables | cut -d'"' -f4 | tr ' ' '\n')
offers "long options" "$long" "" -
offers "all options" "$(printf '%s\n' "$long" "$short" -h --help '-?' -- | LC_ALL=C sort)" "" \
    --zorvmanuallaunch -
offers "a prefix, after a switch and a value" "--zorvport
--zorvprogress" "" --zorvdebug --zorvhost x --zorvp

offers "the switch of the environment" "--port" "PELK_MANUAL_LAUNCH=1" --por
offers "a short spelling and its value" "--port" "TALVORA_MANUAL_LAUNCH=" -host x --por
offers "short spellings end the options" "" "" -host x --zorvp

info=FUNCTION=_zorv_mpirun_info
offers "the report's own options" "--json" $info --j
offers "the launcher's, after the report's" "--zorvport" $info --json --host x zorv-mpirun --zorvpor
offers "the launcher's command line has begun" "" $info zorv-mpirun --j
