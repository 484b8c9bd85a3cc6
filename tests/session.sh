#!/bin/sh
# The launcher with a session, from outside: restarts that a front end asks for
# through files, and signals in every state.
# shellcheck disable=SC2016 # it is for the shell of the helper
. "$1/tests/support/launch.sh"

files() {
    (cd session && echo *)
}

# leaves FILES WHAT ...: the files of the session after what is to be expected.
leaves() {
    files=$1
    shift
    expect "$@"
    same "files, $1" "$files" "$(files)"
}
# With a request for a restart that is another session's, and stays.
install bin
: >session/restart
leaves restart "no host" 0 started "" env ZORV_HOST= "$launcher"
leaves restart "wrong option" 1 "" "invalid --zorvport argument 'x'" "$launcher" --zorvport x a.out

# A link that leads nowhere holds nothing and is not followed.
ln -s victim session/restart-hold
leaves "restart-hold restart-supported" "hold that cannot be made" 0 started \
    "$session/restart-hold: Too many levels of symbolic links" "$launcher"

install bin
HELPER=': >session/restart; rm bin/zorv-debugger'
leaves "restart-hold restart-supported" "restart without a helper" 1 "" \
    "$root/bin/zorv-debugger: No such file or directory" \
    env TALVORA_MPIRUN_LOG="$root/log.log" "$launcher"
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

# A helper tells of its start through a FIFO, and ends when told so by another. Open
# for both, they have no end when a writer closes them.
install bin
mkfifo up go
exec 3<>up
HELPER='echo $$ >up; read -r _ <>go'
what="restarts"
start
read -r _ <&3
same "files of the first helper" restart-supported "$(files)"
: >session/restart
echo >go
read -r _ <&3
same "files of the second helper" "restart-hold restart-supported" "$(files)"
# A request that is made during the hold counts, when the hold is released.
echo >go
held
: >session/restart
rm session/restart-hold
read -r _ <&3
# Whatever has the name is a hold, for longer than the launcher looks away.
rm session/restart-hold
mkdir session/restart-hold
: >session/restart
echo >go
held
sleep 1.2
same "files during a hold" "restart restart-hold restart-supported" "$(files)"
rmdir session/restart-hold
read -r _ <&3
rm session/restart-hold
echo >go
ended "end after restarts" 0
same "files left" restart-supported "$(files)"

# Default actions spare the first process of a container.
HELPER='kill -TERM "$PPID"; exec sleep 60'
if unshare -rpf true 2>/dev/null; then
    leaves "*" "signal to process 1" 143 "" "" unshare -rpf "$launcher"
else
    echo "Namespaces are forbidden here: no launcher as process 1"
fi

# signalled STATE NUMBER FILE [OPTION]: the file is there when the first helper ends.
signalled() {
    what="$1, signal $2"
    rm -f session/* signal
    [ -z "$3" ] || : >"session/$3"
    start "${4-LANG=C}"
    read -r child <&3
    case $3 in
    restart) kill -KILL "$child" && read -r _ <&3 ;;
    restart-hold) kill -KILL "$child" && held && echo "$2" >signal ;;
    esac
    [ "$1" = "no session" ] || [ -e "$marker" ] || fail "$1: no marker"
    kill -"$2" "$pid"
    ended "$what" $((128 + $2))
    [ ! -e "$marker" ] || fail "$what: the marker is left"
    until [ -e signal ]; do
        sleep 0.01
    done
    same "the helper's signal, $what" "$2" "$(cat signal)"
}
install bin
mkfifo up
exec 3<>up
cp "$testchild" bin/zorv-debugger
export TESTCHILD="--record-signal $root/signal --append $root/up --sleep"
for number in 1 2 6 7 8 11 15; do
    signalled "no session" "$number" "" ZORV_HOST=
    signalled session "$number" ""
    signalled "after a restart" "$number" restart
    signalled "in the hold" "$number" restart-hold
    signalled "ignored at the start" "$number" "" --ignore-signal="$number"
done
