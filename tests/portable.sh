#!/bin/sh
# The portable launcher alone with the C library: no Qt, no other library, no
# /proc, no configuration.
. "$1/tests/support/launch.sh"

unshare --map-root-user true || skip "no namespaces here"
install bin
cp "$testchild" bin/zorv-debugger
libraries=$(ldd "$launcher" | sed -nE 's/.*[[:space:]](\/[^ ]+) \(0x.*/\1/p')
same "libraries" "" "$(echo "$libraries" | grep -vE '/(lib[cm]\.so|ld-linux)[^/]*$')"
# shellcheck disable=SC2086 # several names
cp --parents $libraries .
expect "launch in an empty root" 0 "" "" env ZORV_HOST= TESTCHILD="--record /record" \
    unshare --map-root-user chroot . /bin/zorv-mpirun -np 2
same "the helper's command line" "/bin/zorv-debugger --zorvmpirun -np 2 " "$(tr '\0' ' ' <record)"
