#!/bin/sh
# The example front end against the real launcher.
# Usage: frontend.sh SOURCE_DIRECTORY LAUNCHER TESTCHILD
set -eu
. "$1/tests/support/script.sh"

root=$work/installation
mkdir -p "$root/bin" "$root/lib" "$root/libexec" "$work/tmp" "$work/home"
cp "$2" "$root/bin/zorv-mpirun"
cp "$3" "$root/bin/zorv-debugger"

# front_end HELPER_ACTIONS SHELL: leaves the status in $status.
front_end() {
    status=0
    env HOME="$work/home" TMPDIR="$work/tmp" TESTCHILD="$1" \
        "$2" "$source/examples/front-end" "$root/bin/zorv-mpirun" -np 2 a.out \
        2>"$work/errors" || status=$?
    same "files left behind" "" "$(find "$work/tmp" "$work/home" -mindepth 1)"
}

shells="sh"
if command -v bash >/dev/null; then
    shells="sh bash"
fi
for shell in $shells; do
    rm -f "$work/helpers"
    front_end "--append $work/helpers --exit 3" "$shell"
    same "$shell: status" 0 "$status"
    same "$shell: helpers" 2 "$(sort -u "$work/helpers" | wc -l)"
done

# The launcher ends by a signal before a restart, and takes its marker along.
cat >"$root/bin/zorv-debugger" <<'HELPER'
#!/bin/sh
kill -TERM $PPID
HELPER
front_end "" sh
same "status after a signal" 143 "$status"

# The launcher cannot be started, or its helper cannot.
rm "$root/bin/zorv-debugger"
front_end "" sh
same "status without a helper" 1 "$status"
grep -q "zorv-debugger: " "$work/errors" || fail "the missing helper is not named"
rm "$root/bin/zorv-mpirun"
front_end "" sh
same "status without a launcher" 127 "$status"

# A signal to the front end ends all three.
mkdir -p "$work/tmp2"
cp "$2" "$root/bin/zorv-mpirun"
cp "$3" "$root/bin/zorv-debugger"
mkfifo "$work/started"
env HOME="$work/home" TMPDIR="$work/tmp2" TESTCHILD="--record-signal $work/signal --append $work/started --sleep" \
    sh "$source/examples/front-end" "$root/bin/zorv-mpirun" 2>"$work/errors" &
front_end=$!
read -r helper <"$work/started"
kill -TERM "$front_end"
status=0
wait "$front_end" || status=$?
same "status of the front end" 143 "$status"
while kill -0 "$helper" 2>/dev/null && ! grep -q 'State:.Z' "/proc/$helper/status" 2>/dev/null; do
    sleep 1
done
same "the helper's signal" 15 "$(cat "$work/signal")"
same "directories left behind" "" "$(ls -A "$work/tmp2")"
