#!/bin/sh
# The launcher where something is wrong around it: the session directory, the
# resolver, the interfaces.
# shellcheck disable=SC2086 # a list of words
. "$1/tests/support/launch.sh"
if [ "${NAMESPACES-}" != own ]; then
    namespaces="unshare --user --map-root-user --mount --net --uts"
    $namespaces true || skip "no namespaces here"
    rm -r "$work"
    NAMESPACES=own exec $namespaces sh "$0" "$@"
fi

# directory CAUSE [DIRECTORY]: the launch goes on and says what it could not make.
# Root may read and write everything; the launched program then may not.
directory() {
    directory=${2-$session}
    expect "session directory: $1" 0 started "${1:+$directory/log-$(uname -n).log: $1
$directory/restart-supported: $1}" \
        setpriv --bounding-set -dac_override,-dac_read_search \
        env ZORV_SESSION_PATH="$directory" ZORV_MPIRUN_LOG="$directory/log" "$launcher"
    chmod 700 session 2>/dev/null || true
    [ -n "$1" ] || [ -e "$directory/restart-supported" ] || fail "no marker in $directory"
}
# small OPTIONS [COMMAND]: the session directory is a small file system.
small() {
    mount -t tmpfs -o "$1" none session
    eval "$2"
    directory "$3"
    umount session
}
install bin
directory ""
directory "No such file or directory" "$root/missing"
directory "Not a directory" "$root/bin/zorv-debugger"
rm -f session/*
chmod 0 session
directory "Permission denied"
small size=1m "mount -o remount,bind,ro session" "Read-only file system"
small nr_inodes=1 : "No space left on device"
small size=4k "! printf %8192s x 2>/dev/null >session/data" ""

# named NAME LOCALE [SHOWN]: a name that is not UTF-8 is shown otherwise, and not found.
named() {
    mkdir "$session/$1"
    expect "directory named $1" 0 started \
        "${3+$session/$3/restart-supported: No such file or directory}" \
        env LC_ALL="$2" ZORV_SESSION_PATH="$session/$1" "$launcher"
    same "files in $1" "${3-restart-supported}" "$(ls "$session/$1")${3-}"
}
install bin
named "$(printf 's\303\251\342\202\254')" C.UTF-8
named "$(printf 's\303\251')" C
named " a
%s " C
named "$(printf 's\351')" C.UTF-8 "$(printf 's\357\277\275')"

# resolver SERVER COMMAND...: with the interfaces that the commands of ip make, a
# launch sends nothing, to that name server or another one.
resolver() {
    install bin
    server=$1
    shift
    ip link delete d0 2>/dev/null || true
    printf '%s\n' "$@" | ip -batch -
    echo "nameserver $server" >/etc/resolv.conf
    before=$(datagrams)
    expect "server $server, $*" 0 started "" "$launcher" --zorvyourname other
    same "datagrams sent, server $server" "$before" "$(datagrams)"
    [ -e "$marker" ] || fail "no marker, server $server"
}
datagrams() {
    sed -nE 's/^Udp: [0-9]+ [0-9]+ [0-9]+ ([0-9]+) .*/\1/p' /proc/net/snmp
}
mount -t tmpfs none /etc
echo 127.0.0.1 localhost >/etc/hosts
echo hosts: files dns >/etc/nsswitch.conf
hostname nodex
resolver 127.0.0.1
ip link set lo up
up="link add d0 type veth peer name d1
link set d0 up
link set d1 up"
resolver 127.0.0.1 "$up" "addr add 10.9.9.1/24 dev d0"
resolver 10.9.9.2 "$up" "addr add 10.9.9.1/24 dev d0"
resolver 10.9.9.2 "$up" "$(seq -f 'addr add 10.9.%.0f.1/16 dev d0' 0 255)"
