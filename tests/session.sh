#!/bin/sh
# The launcher with a session, from outside: restarts that a front end asks for
# through files, and signals in every state.
# Usage: session.sh SOURCE_DIRECTORY LAUNCHER TESTCHILD
set -eu
. "$1/tests/support/launch.sh"

# one_launch WHAT STATUS OUTPUT ERRORS FILES COMMAND...: and what is in the session
# directory afterwards.
one_launch() {
    files=$5
    what="$1" status=$2 output=$3 errors=$4
    shift 5
    expect "$what" "$status" "$output" "$errors" "$@"
    same "files, $what" "$files" "$(echo $(ls session))"
}
# With the request for a restart of another session, which stays.
install
: >session/restart
one_launch "no host" 0 started "" restart env ZORV_HOST= "$launcher"
one_launch "no port" 0 started "" restart env ZORV_PORT=65536 "$launcher"
one_launch "wrong option" 1 "" "invalid --zorvport argument 'x'" restart "$launcher" --zorvport x a.out
one_launch "half an option" 1 "" "option '--zorvsession' requires an argument" restart \
    "$launcher" --zorvsession

# A link that leads nowhere holds nothing and is not followed.
ln -s victim session/restart-hold
one_launch "hold that cannot be made" 0 started \
    "$session/restart-hold: Too many levels of symbolic links" \
    "restart-hold restart-supported" "$launcher"

install
HELPER=': >session/restart; rm bin/zorv-debugger'
one_launch "restart without a helper" 1 "" "$root/bin/zorv-debugger: No such file or directory" \
    "restart-hold restart-supported" env TALVORA_MPIRUN_LOG="$root/log.log" "$launcher"
same "log" "$(cat "$work/err")" "$(cat "log-$(uname -n).log")"

# start [COMMAND]...: starts the launcher in the background; its id is $pid.
start() {
    env --default-signal "$@" "$launcher" >"$work/out" 2>"$work/err" &
    pid=$!
}

# ended WHAT STATUS: waits for the end of the launcher, which has said nothing.
ended() {
    status=0
    wait "$pid" 2>/dev/null || status=$?
    same "$1" "$2, ''" "$status, '$(cat "$work/out" "$work/err")'"
}

# held: waits until the launcher has seen the end of its helper.
held() {
    until [ -z "$(cat "/proc/$pid/task/$pid/children")" ]; do
        sleep 0.01
    done
}

# The helper tells of its start through a FIFO, and ends when another one says so.
install
mkfifo up go
exec 3<>up
HELPER='echo $$ >up; read -r _ <go'
start
read -r _ <&3
same "files of the first helper" restart-supported "$(ls session)"
: >session/restart
echo >go
read -r _ <&3
same "files of the second helper" "restart-hold restart-supported" "$(echo $(ls session))"
same "content of the files" "" "$(cat session/*)"
# A request that is made during the hold counts, when the hold is released.
echo >go
held
: >session/restart
rm session/restart-hold
read -r _ <&3
# Whatever has the name is a hold.
rm session/restart-hold
mkdir session/restart-hold
: >session/restart
echo >go
held
same "files during a hold" "restart restart-hold restart-supported" "$(echo $(ls session))"
rmdir session/restart-hold
read -r _ <&3
rm session/restart-hold
echo >go
ended "end after restarts" 0
same "files left" restart-supported "$(ls session)"

# signalled STATE SIGNAL NUMBER
signalled() {
    rm -f session/* signal
    case $1 in
    "no session") start ZORV_HOST= ;;
    ignored) start --ignore-signal="$2" ;;
    held) : >session/restart-hold && start ;;
    *) start ;;
    esac
    read -r child <&3
    case $1 in
    restarted)
        : >session/restart
        kill -KILL "$child"
        read -r child <&3
        ;;
    held) kill -KILL "$child" && held ;;
    esac
    [ "$1" = "no session" ] || [ -e "$marker" ] || fail "$1: no marker"
    kill -"$2" "$pid"
    ended "$1, $2" $((128 + $3))
    [ ! -e "$marker" ] || fail "$1, $2: the marker is left"
    until [ "$1" = held ] || [ -e signal ]; do
        sleep 0.01
    done
    [ "$1" = held ] || same "the helper's signal, $1" "$3" "$(cat signal)"
}
install
mkfifo up
exec 3<>up
cp "$testchild" bin/zorv-debugger
export TESTCHILD="--record-signal $root/signal --append $root/up --sleep"
for state in "no session" session restarted held ignored; do
    signalled "$state" HUP 1
    signalled "$state" INT 2
    signalled "$state" ABRT 6
    signalled "$state" BUS 7
    signalled "$state" FPE 8
    signalled "$state" SEGV 11
    signalled "$state" TERM 15
done
