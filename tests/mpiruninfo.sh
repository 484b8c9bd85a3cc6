#!/bin/sh
# The report on a launch: it names what is wrong, and never the cookie.
. "$1/tests/support/launch.sh"
info=$4

# session ATTRIBUTES: writes the session file.
session() {
    echo "<session $1 cookie='c00kie'/>" >sessions/alpha-3
}

# The keys of the report and of its sections.
keys() {
    sed '/^    "problems": \[$/,/^    \]/s/.*/    "problems"/' | grep -oE '^(    |        )"\w+"' | sort -u
}

# reports CODES TEXT COMMAND [ARGUMENT]...: of an installation in which nothing is wrong
# but for what the command does. A machine without a network is as good.
reports() {
    codes=$1 text=$2 command=$3
    shift 3
    install bin
    cp "$info" bin
    # The name "session" is that of the installation's session file.
    mv session sessions
    session "host='alpha' port='4244' session='3'"
    ln -s alpha-3 sessions/latest
    (
        eval "$command"
        bin/zorv-mpirun-info "$@" >shown 2>&1
        echo "status $?" >>shown
        bin/zorv-mpirun-info --json "$@" >json 2>&1
    ) || true
    tr -s ' \n' ' ' <shown | grep -qF -e "$text" || fail "$command, $*: no '$text' in
$(cat shown)"
    same "problems, $command, $*" "$codes" \
        "$(sed -nE '/no-address/d; s/^ +"code": "(.*)",$/\1/p' json | xargs)"
    [ -e "$work/keys" ] || keys <json >"$work/keys"
    same "keys, $command, $*" "" "$(keys <json | diff "$work/keys" -)"
    ! grep c00kie shown json || fail "the cookie is shown, $command, $*"
}
export ZORV_SESSION_PATH="$root/sessions"
unset ZORV_HOST
rejected="command-line-rejected"
unusable="session-invalid session-file-unusable"

reports "" "problems none status 0" :
# Scripts rely on these.
for key in commandLine accepted installation helper session valid invalidBecause hosts port \
    sessionFile cookiePresent restartFile host addresses settings problems version; do
    grep -q " \"$key\"" "$work/keys" || fail "no $key"
done
reports "$rejected" "invalid --zorvport argument '42x' status 1" : --zorvport 42x
reports "helper-unusable" "bin/zorv-debugger: the helper is missing status 1" "rm bin/zorv-debugger"
reports "helper-unusable" "the helper is not executable status 1" "chmod 0 bin/zorv-debugger"
reports "directory-missing" "/libexec: the installation's directory" "rm -r libexec"
reports "no-interface" "lets no interface" "export ZORV_NETWORK_INTERFACES=none0"
reports "settings-conflict" "PELK_LOCALHOST is not used: ZORV_LOCALHOST is set, to another value" \
    "export ZORV_LOCALHOST=127.0.0.1 PELK_LOCALHOST=127.0.0.2"
reports "setting-not-a-number port-unknown" "PELK_SESSION is not used: '3x' is no number" \
    "session host=\'alpha\'; export PELK_SESSION=3x"
reports "setting-overridden" "comes from the session file status 0" "export TALVORA_PORT=4250"
reports "port-of-another-session" "session 3 (session file) listens at 4244" : --zorvport 4250
reports "session-invalid" "the port 70000 is above 65535" "session \"host='a' port='70000'\""
reports "port-unknown session-directory-unusable" "/sessions: the session directory is missing" \
    "rm -r sessions; export ZORV_HOST=a"
reports "$unusable" "no source names a front end host" "rm sessions/latest"
reports "$unusable" "/sessions/latest (dead link), a link to " "rm sessions/alpha-3"
reports "$unusable" "(with a port that is no number)" "session port=\'c00kie\'"
reports "restart-file-left" "/sessions/restart: with this restart file" ": >sessions/restart"
# Too long a name for any server to be asked.
reports "host-unknown" "x: no address found" : --host "$(printf '%064d' 0 | tr 0 x)"
reports "" "127.42.42.2, 127.42.42.1" : --host 127.42.42.2,127.42.42.1
reports "$rejected" "invalid --zorvport argument" "ln -s zorv-mpirun bin/mpirun" bin/mpirun --zorvport x
reports "" "arguments of mpi launcher: 2 " : /opt/bin/zorv-mpirun --zorvsession 3 --help --json

# The cookie is in other places than the session file.
reports "" "ZORV_LOGS = /***" "export ZORV_LOGS=/c00kie" a.out=c00kie
reports "$rejected $unusable" "argument 'x***'" "rm sessions/*" \
    --zorvport xc00kie --zorvsessioncookie c00kie
reports "$unusable" "ZORV_SESSION_COOKIE = (hidden)" \
    "rm sessions/*; export ZORV_SESSION_COOKIE=c00kie PELK_SESSION_COOKIE=c00kie"
reports "setting-not-a-number setting-overridden $unusable" "ZORV_LOGS = /***" \
    "rm sessions/*; export TALVORA_SESSION_COOKIE=c00kie ZORV_LOGS=/c00kie ZORV_PORT=c00kie" \
    --zorvsessioncookie other

reports "" "hosts: alpha, 10.0.0.1 (environment) port: 4244 (derived) session: 3 (session file)\
 cookie present: yes (session file) cookie used: yes (default) shared directory: /tmp (environment)\
 tarball: /t (option) session file: $root/sessions/alpha-latest (derived)" \
    "echo '<session session=\"3\" cookie=\"c00kie\"/>' >sessions/alpha-latest
    export ZORV_HOST=alpha,10.0.0.1 PELK_SHARED_DIRECTORY=/tmp" --zorvtarball /t -np

expect "half an option" 2 "" "option '--host' requires an argument" "$info" --host
"$info" --json --help | grep -q "^Usage: zorv-mpirun-info " || fail "no help"
