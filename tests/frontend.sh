#!/bin/sh
# The example front end against the real launcher.
# shellcheck disable=SC2016 # it is for the shell of the helper
. "$1/tests/support/launch.sh"
unset ZORV_HOST
export TMPDIR="$root/session"

# front_end WHAT STATUS: with the helper that there is.
front_end() {
    status=0
    sh "$source/examples/front-end" "$launcher" 2>errors || status=$?
    same "$1" "status $2, files left: " "status $status, files left: $(ls session)"
}
install bin
HELPER='echo $$ >>helpers; exit 3'
front_end "a restart" 0
same "helpers" 2 "$(sort -u helpers | wc -l)"
# The launcher takes its marker along.
HELPER='kill -TERM $PPID'
front_end "a signal before the restart" 143
rm bin/zorv-debugger
front_end "no helper" 1

# A signal to the front end ends all three.
cp "$testchild" bin/zorv-debugger
mkfifo started
TESTCHILD="--record-signal signal --append started --sleep" \
    sh "$source/examples/front-end" "$launcher" 2>errors &
front_end=$!
read -r _ <started
kill -TERM "$front_end"
status=0
wait "$front_end" || status=$?
until [ -e signal ]; do
    sleep 0.01
done
same "a signal to the front end" "143, the helper 15, files left: " \
    "$status, the helper $(cat signal), files left: $(ls session)"
