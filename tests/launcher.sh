#!/bin/sh
# The launcher from outside, with real helpers.
# shellcheck disable=SC1003,SC2016,SC2094 # it is for the shell of the helper
. "$1/tests/support/launch.sh"

# layout DIRECTORY COMMAND [ERRORS]: with variables for another Qt program.
layout() {
    install "$1"
    rmdir lib libexec
    ln -s ../bin/zorv-mpirun session/link
    HELPER='echo "$0"'
    expect "programs in $1, $2" 0 "$root/$1/zorv-debugger" "${3-}" \
        env QT_LOGGING_RULES='*=false' QT_MESSAGE_PATTERN=pattern "$2"
}
# Only an installation has directories to miss.
warnings=$(printf "Unable to find directory '$root/%s'.
Your Velmor product installation may be incomplete or corrupted.\n" lib libexec)
layout bin bin/zorv-mpirun "$warnings"
layout bin session/link "$warnings"
layout Bin Bin/zorv-mpirun

# passes_on [ARGUMENT]...: they reach the helper as they are.
passes_on() {
    expect "arguments" 0 "" "" "$launcher" "$@"
    printf '%s\0' /bin/sh "$root/bin/zorv-debugger" --zorvmpirun "$@" | cmp - record ||
        fail "arguments are not passed on: $(printf '%.99s ' "$@")"
}
install bin
HELPER='cat /proc/$$/cmdline >record'
passes_on "a b" "" "'c\"" "d
e" '\' '$HOME' '*' "$(for byte in $(seq 255); do printf '%b' "\\0$(printf %o "$byte")"; done)"
# shellcheck disable=SC2046 # that many words
passes_on $(seq 10000) "$(printf %131000s x)"
# Those that Qt takes for itself, and options of the launcher.
passes_on -qmljsdebugger=x --qmljsdebugger y -platform z --zorvport none
passes_on --zorvport 4242 --zorvmpirun -np 2 a.out --zorvport
passes_on -h

printf '\001\002garbage' >bin/zorv-debugger
expect "no program" 1 "" "$root/bin/zorv-debugger: Exec format error" "$launcher"
rm bin/zorv-debugger
expect "no helper" 1 "" "$root/bin/zorv-debugger: No such file or directory" "$launcher"

# same_state COMMAND...: a helper finds the same when the command starts it and when
# it starts the launcher, but has all standard streams then.
same_state() {
    "$@" "$root/bin/zorv-debugger"
    direct=$(sed '1s/^descriptors\( [012]\)*/descriptors 0 1 2/' state)
    expect "launch by $*" 0 "" "" "$@" "$launcher"
    same "what the helper finds, by $*" "$direct" "$(cat state)"
}
install bin
cp "$testchild" bin/zorv-debugger
export TESTCHILD="--record-state $root/state"
same_state env -C session 3</dev/null 9</dev/null
same_state env --ignore-signal=HUP,INT,PIPE,USR2,CHLD --block-signal=TERM,USR1,CHLD
same_state sh -c 'exec "$@" <&- >&- 2>&-' sh
same_state prlimit --nofile=16
! prlimit --nofile=1048576 true 2>/dev/null || same_state prlimit --nofile=1048576

# stack LIMITS EXECUTIONS OUTPUT ERRORS [VARIABLE=VALUE]...: the launcher may execute
# itself once more. The sanitizers do not look for leaks under strace.
stack() {
    limits=$1 executions=$2 output=$3 errors=$4
    shift 4
    expect "stack of $limits, $*" 0 "argument $output" "$errors" \
        env ASAN_OPTIONS=detect_leaks=0 "$@" prlimit --stack="$limits" \
        strace -o "$work/trace" -e trace=execve "$launcher" argument
    same "executions" "$executions" "$(grep -c 'execve(' "$work/trace")"
}
install bin
HELPER='echo "$2 ${TALVORA_OLD_STACK_LIMIT-unset} $(ulimit -Ss)"'
stack 4194304:10485760 1 "4194304 4096" "setrlimit: Invalid argument"
if [ "$(prlimit --noheadings --output HARD --stack)" = unlimited ]; then
    stack 8384512: 2 "unset 8188" ""
    stack 8388608: 1 "unset 8192" ""
    stack 67112960: 2 "unset 65540" ""
    stack unlimited: 1 "unset unlimited" ""
    stack 4194304: 1 "unset 4096" "" ZORV_IGNORE_STACK_LIMIT=
    stack 4194304: 2 "unset 4096" "" ZORV_IGNORE_STACK_LIMIT=Off
    stack 8388608: 1 "unset 4096" "" TALVORA_OLD_STACK_LIMIT=0004194304
    for value in "" +4194304 4194304k 99999999999999999999; do
        stack 8388608: 1 "unset 8192" "" TALVORA_OLD_STACK_LIMIT="$value"
    done
fi

# helps STATUS FIRST_LINE MANUAL [ARGUMENT]...: help ends the launcher.
helps() {
    first=$1:$2 manual=$3
    shift 3
    status=0
    ZORV_MANUAL_LAUNCH=$manual "$launcher" "$@" >out || status=$?
    same "help by $*" "$first" "$status:$(head -n 1 out)$(grep started out || true)"
}
install bin
usage="Usage: zorv-client [OPTION]... [PROGRAM] [ARGUMENTS]..."
helps 0 "$usage" yes -h
helps 1 "$usage" no --zorvmanuallaunch
helps 1 "zorv-mpirun [TOOL ARGUMENTS]... [MPIRUN ARGUMENTS]..." no --zorvmpirun --zorvmanuallaunch

: >libQt6Core.so.6
expect "a library in the working directory" 0 started "" "$launcher"

# The launcher holds the other end of the input; an output that is closed swallows.
HELPER='ls -l "/proc/$PPID/fd" | grep -oF "$(readlink "/proc/$$/fd/0")" | uniq | tr -d "0-9" >&2'
expect "input" 0 "" "pipe:[]" "$launcher"
HELPER='echo started || echo lost >&2'
mkfifo gone
exec 8<>gone 7>gone 8<&-
rmdir lib
expect "messages that nobody reads" 0 started "" sh -c 'exec "$1" 2>&7' sh "$launcher"
mkdir lib
expect "closed output" 0 "" "" sh -c '"$1" >&-' sh "$launcher"
