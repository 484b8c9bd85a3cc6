#!/bin/sh
# What cmake --install makes, moved to another place and launched there.
# Usage: install.sh SOURCE_DIRECTORY BUILD_DIRECTORY CMAKE TESTCHILD
set -eu
. "$1/tests/support/script.sh"

DESTDIR=$work/stage "$3" --install "$2" --prefix /opt/suite >"$work/install.log"
same "outside of the prefix" "$work/stage/opt/suite" \
    "$(find "$work/stage" -mindepth 1 -not -path "$work/stage/opt/suite/*" -not -path "$work/stage/opt")"

# A blank in the name, as users make them.
root="$work/moved to"
mv "$work/stage/opt/suite" "$root"
for file in bin/zorv-mpirun share/man/man1/zorv-mpirun.1 \
    share/bash-completion/completions/zorv-mpirun share/doc/zorv-mpirun/docs/settings.md \
    share/doc/zorv-mpirun/examples/front-end; do
    [ -f "$root/$file" ] || fail "$file is not installed"
done
# They would bring twelve more libraries with them, at every launch.
same "libraries that the launcher has no use for" "" \
    "$(objdump -p "$root/bin/zorv-mpirun" | grep -E 'NEEDED.*Qt6(Network|Xml)')"
same "files that anybody may write" "" "$(find "$root" -perm /o+w -not -type l)"

cp "$4" "$root/bin/zorv-debugger"
# launch PROGRAM: its messages; what the helper was given is in $work/record.
launch() {
    rm -f "$work/record"
    env -i HOME="$work" PATH="$PATH" TESTCHILD="--append $work/started --record $work/record" \
        "$1" -np 2 "a b" 2>&1 || fail "$1: status $?"
}
expected="$root/bin/zorv-debugger|--zorvmpirun|-np|2|a b|"
same "messages" "" "$(launch "$root/bin/zorv-mpirun")"
same "the helper's command line" "$expected" "$(tr '\0' '|' <"$work/record")"
ln -s "$root/bin/zorv-mpirun" "$work/mpirun"
same "messages, through a link" "" "$(launch "$work/mpirun")"
same "the helper's command line, through a link" "$expected" "$(tr '\0' '|' <"$work/record")"

# The session of the installation serves every user of it.
echo '<session host="front" port="4242"/>' >"$root/session"
mkdir -p "$work/.talvora/session"
same "messages, with a session" "" "$(launch "$root/bin/zorv-mpirun")"
[ -f "$work/.talvora/session/restart-supported" ] || fail "the installation's session is not found"
