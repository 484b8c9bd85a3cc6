#!/bin/sh
# The example front end against the real launcher.
# Usage: frontend.sh SOURCE_DIRECTORY LAUNCHER TESTCHILD
set -eu
. "$1/tests/support/script.sh"

bin=$work/installation/bin
mkdir -p "$bin" "$bin/../lib" "$bin/../libexec" "$work/tmp"
cp "$2" "$bin/zorv-mpirun"
cp "$3" "$bin/zorv-debugger"
export HOME=/nonexistent TMPDIR="$work/tmp"

# front_end HELPER_ACTIONS SHELL: leaves the status in $status.
front_end() {
    TESTCHILD=$1 "$2" "$source/examples/front-end" "$bin/zorv-mpirun" 2>"$work/errors" &&
        status=0 || status=$?
    same "files left behind" "" "$(ls -A "$TMPDIR")"
}

for shell in sh bash; do
    command -v "$shell" >/dev/null || continue
    front_end "--append $work/helpers.$shell --exit 3" "$shell"
    same "$shell: status" 0 "$status"
    same "$shell: helpers" 2 "$(sort -u "$work/helpers.$shell" | wc -l)"
done

# The launcher ends by a signal before a restart, and takes its marker along.
# shellcheck disable=SC2016 # the helper's variable
printf '#!/bin/sh\nkill -TERM $PPID\n' >"$bin/zorv-debugger"
front_end "" sh
same "status after a signal" 143 "$status"

# The launcher cannot be started, or its helper cannot.
rm "$bin/zorv-debugger"
front_end "" sh
same "status without a helper" 1 "$status"
grep -q "zorv-debugger: " "$work/errors" || fail "the missing helper is not named"
rm "$bin/zorv-mpirun"
front_end "" sh
same "status without a launcher" 127 "$status"

# A signal to the front end ends all three.
cp "$2" "$bin/zorv-mpirun"
cp "$3" "$bin/zorv-debugger"
mkfifo "$work/started"
TESTCHILD="--record-signal $work/signal --append $work/started --sleep" \
    sh "$source/examples/front-end" "$bin/zorv-mpirun" 2>"$work/errors" &
front_end=$!
read -r helper <"$work/started"
kill -TERM "$front_end"
wait "$front_end" && status=0 || status=$?
same "status of the front end" 143 "$status"
while grep -qs . "/proc/$helper/cmdline"; do sleep 0.1; done
same "the helper's signal" 15 "$(cat "$work/signal")"
same "directories left behind" "" "$(ls -A "$TMPDIR")"
