#!/bin/sh
# A session directory that others can write, with things of another user at the
# names that the launcher writes.
# shellcheck disable=SC2016 # it is for eval
. "$1/tests/support/launch.sh"

: >"$work/probe"
chown 54321 "$work/probe" 2>/dev/null || skip "only root can be several users"
export ZORV_MPIRUN_LOG="$session/log"

# shared [OWNER]: a new installation, with a session directory that anybody may write.
# A sticky one: nobody can take away what the launcher has made.
shared() {
    install bin
    chmod 755 "$work" .
    chmod 1777 session
    chown "${1-0}" session
    echo precious >mine
}

# refused NAME COMMAND CAUSE [OWNER]: what the command makes at the name, of a stranger
# or that owner, stays, and the launcher says that.
refused() {
    shared
    name=$1
    eval "$2"
    chown -h "${4-54321}" "$name"
    before=$(stat -c '%F %i %y %s' "$name")
    expect "$2" 0 started "$name: $3" "$launcher"
    same "what was there, $2" "$before" "$(stat -c '%F %i %y %s' "$name")"
    same "what is mine, $2" precious "$(cat mine)"
    [ ! -e nothing ] || fail "a link was followed, $2"
}
foreign="belongs to another user"
for name in "$log" "$marker"; do
    refused "$name" 'ln -s "$root/mine" "$name"' "$foreign"
    refused "$name" 'ln -s "$root/nothing" "$name"' "$foreign"
    refused "$name" 'mkfifo "$name"' "is a FIFO without a reader, or a socket"
    refused "$name" 'mkfifo "$name"; exec 3<>"$name"' "$foreign"
    refused "$name" 'echo text >"$name"' "$foreign"
    refused "$name" 'ln mine "$name"' "has other names, where others can write" 0
done

# trusted OWNER TYPE: what is mine or the directory's owner's is emptied.
trusted() {
    shared "$1"
    ln -s "$root/mine" "$log"
    [ "$2" = link ] || cp --remove-destination mine "$log"
    echo old >"$marker"
    chown -h "$1" "$log" "$marker"
    expect "$2 of $1" 0 started "" "$launcher"
    same "sizes, $2 of $1" "0 0" "$(stat -L -c %s "$log" "$marker" | xargs)"
}
for owner in 0 54321; do
    trusted "$owner" file
    trusted "$owner" link
done
