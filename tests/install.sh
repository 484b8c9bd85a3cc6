#!/bin/sh
# What cmake --install makes, moved elsewhere and launched there; and a package, in
# a root directory with nothing else in it but the libraries of the programs.
# Arguments: SOURCE_DIRECTORY BUILD_DIRECTORY CMAKE TESTCHILD [KIND_OF_PACKAGE]
# shellcheck disable=SC2086 # lists of words, and a pattern
set -eu
. "$1/tests/support/script.sh"
build=$2 cmake=$3 testchild=$4 kind=${5-} clean=$work/clean
mkdir -p "$work/.talvora/session" "$clean/var/lib/dpkg/info"

# launch COMMAND...: starts the launcher, which finds its helper and says nothing.
launch() {
    same "$*" helper \
        "$(env -i HOME="$work" PATH="$PATH" TESTCHILD="--print helper" "$@" -np 2 2>&1)"
}

DESTDIR=$work/stage "$cmake" --install "$build" --prefix /opt/suite >"$work/install.log"
same "outside of the prefix" "$work/stage/opt/suite" \
    "$(find "$work/stage" -mindepth 1 -not -path "$work/stage/opt/suite/*" -not -path "$work/stage/opt")"
# A blank in the name, as users make them.
root="$work/moved to"
mv "$work/stage/opt/suite" "$root"
for file in man/man1/zorv-mpirun.1 man/man1/zorv-mpirun-info.1 bash-completion/completions/zorv-mpirun \
    doc/zorv-mpirun/docs/settings.md doc/zorv-mpirun/examples/front-end; do
    (cd "$root/share" && [ -f $file ]) || fail "share/$file is not installed"
done
# They would bring twelve more libraries with them, at every launch.
same "libraries that the launcher has no use for" "" \
    "$(objdump -p "$root/bin/zorv-mpirun" | grep -E 'NEEDED.*Qt6(Network|Xml)')"

cp "$testchild" "$root/bin/zorv-debugger"
# The session of the installation serves every user of it.
echo '<session host="front" port="4242"/>' >"$root/session"
launch "$root/bin/zorv-mpirun"
[ -f "$work/.talvora/session/restart-supported" ] || fail "the installation's session is not found"

if [ -f /usr/share/modules/init/sh ]; then
    # shellcheck disable=SC1091 # it is there
    . /usr/share/modules/init/sh
    module use "$root/share/modulefiles"
    same "the module" "$root/bin/zorv-mpirun $root/share/man" \
        "$(module load zorv-mpirun && echo "$(command -v zorv-mpirun) ${MANPATH%%:*}")"
fi

[ "$kind" ] && [ "$failures" -eq 0 ] || exit 0
as_root=$([ "$(id -u)" -eq 0 ] || echo unshare --map-root-user)
if ! command -v dpkg-shlibdeps >/dev/null || ! $as_root true; then
    skip "a package needs dpkg-dev, and root or namespaces; the rest is as it should be"
fi
"$(dirname "$cmake")/cpack" --config "$build/CPackConfig.cmake" -G "$kind" -B "$work/package" >"$work/log" 2>&1
if [ "$kind" = DEB ]; then
    prefix=/opt/velmor/kinnet
    : >"$clean/var/lib/dpkg/status"
    $as_root dpkg --root="$clean" --log=/dev/null --force-depends -i "$work"/package/*.deb >"$work/log" 2>&1
    depends=$(dpkg-deb -f "$work"/package/*.deb Depends)
else
    tar -xzf "$work"/package/*.tar.gz -C "$clean"
    prefix=/$(cd "$clean" && echo zorv-mpirun-*) depends=libc6
fi
bin=$clean$prefix/bin
for library in $(objdump -p "$bin"/* | awk '/NEEDED/ { print $2 }' | sort -u); do
    packages=$(dpkg -S "*/$library" | sed 's/:.*//')
    echo "$depends" | grep -qwF "$packages" || fail "$library is in none of $depends"
done
cp "$testchild" "$bin/zorv-debugger"
ldd "$bin"/* | sed -nE 's/^.*[[:blank:]](\/[^ ]+) \(.*/\1/p' | sort -u | xargs cp --parents -L -t "$clean"
launch $as_root chroot "$clean" "$prefix/bin/zorv-mpirun"
$as_root chroot "$clean" "$prefix/bin/zorv-mpirun-info" >"$work/log" || fail "zorv-mpirun-info: $(cat "$work/log")"
