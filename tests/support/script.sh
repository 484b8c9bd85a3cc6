# What the script tests share; sourced by them, with the source directory as
# their first argument. Sets $source, and $work, a temporary directory that is
# kept when the test fails; takes the suite's settings out of the environment.
# shellcheck shell=sh disable=SC2034

source=$1
work=$(mktemp -d)
for name in $(env | sed -nE 's/^((ZORV|PELK|TALVORA)_[A-Z0-9_]+)=.*/\1/p'); do
    unset "$name"
done
failures=0

finish() {
    status=$?
    [ "$failures" -eq 0 ] || status=1
    case $status in
    0 | 77) rm -rf "$work" ;;
    *) echo "Left in $work: what the test made" >&2 ;;
    esac
    exit "$status"
}
trap finish EXIT
trap 'exit 143' HUP INT TERM

# skip REASON: ends the test as one that could not be run.
skip() {
    echo "Skipped: $1"
    exit 77
}

fail() {
    echo "FAIL: $*" >&2
    failures=$((failures + 1))
}

# same WHAT EXPECTED SEEN
same() {
    [ "$2" = "$3" ] || fail "$1
expected: $2
seen:     $3"
}
