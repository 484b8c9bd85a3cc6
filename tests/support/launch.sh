# What the tests of the launcher share; sourced with the source directory, the
# launcher and the test child as arguments. Sets $launcher, the launcher in an
# installation in $root, the current directory. The helper runs the commands of
# the exported $HELPER; there is a session as long as ZORV_HOST is not empty.
# shellcheck shell=sh disable=SC2016,SC2034

set -eu
. "$1/tests/support/script.sh"
program=$2
testchild=$3
root=$work/root
launcher=$root/bin/zorv-mpirun
session=$root/session
marker=$session/restart-supported
log=$session/log-$(uname -n).log
export HELPER ZORV_HOST=alpha ZORV_SESSION_PATH="$session"
umask 022
what="the start"
trap 'echo "FAIL: no end of: $what" >&2; exit 143' TERM
prlimit --pid $$ --core=0

# install DIRECTORY: makes a new installation, with its programs in the directory.
install() {
    cd "$work"
    rm -rf root
    mkdir -p "root/$1" root/lib root/libexec root/session
    cd root
    cp "$program" "$1/zorv-mpirun"
    printf '#!/bin/sh\neval "$HELPER"\n' >"$1/zorv-debugger"
    chmod +x "$1/zorv-debugger"
    HELPER='echo started; exit 3'
}

# expect WHAT STATUS OUTPUT ERRORS COMMAND [ARGUMENT]...: without the name of the
# call that did not start the helper, in which Qt versions differ.
expect() {
    what=$1
    expected="status $2, output $3
$4"
    shift 4
    status=0
    timeout 60 "$@" >"$work/out" 2>"$work/err" || status=$?
    same "$what" "$expected" "status $status, output $(cat "$work/out")
$(sed 's/: execv[a-z]*: /: /' "$work/err")"
}
