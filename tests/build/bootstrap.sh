#!/bin/sh
# SPDX-License-Identifier: MIT
#
# What ./run and ./test say while they install and build, with stand-ins for apt-get and cmake:
# bootstrap.sh <tools/dev/bootstrap.sh>
set -eu

bootstrap=$1
folder=$(mktemp -d)
trap 'rm -rf -- "$folder"' EXIT
mkdir -p "$folder/bin" "$folder/root/build/release"

# stand_in <program>: its text comes from standard input.
stand_in() {
    { echo '#!/bin/sh' && cat; } >"$folder/bin/$1"
    chmod +x "$folder/bin/$1"
}

# What apt-get says without network.
stand_in apt-get <<'TEXT'
case "$*" in
*update*)
    for i in $(seq 370); do
        echo "Ign:$i http://deb.example bookworm/main amd64 Packages"
        echo "Err:$i http://deb.example bookworm/main amd64 Packages"
    done
    echo "W: Failed to fetch http://deb.example: Temporary failure resolving 'deb.example'"
    ;;
esac
exit 100
TEXT
stand_in id <<'TEXT'
echo 0
TEXT
stand_in cmake <<'TEXT'
echo '[0/2] Re-checking globbed directories...'
for i in $(seq 300); do
    echo "[$i/300] Building CXX object $i.o"
    test "$i" != "$FAILS_AT" || { echo "$i.cpp:1: error: no"; exit 1; }
done
TEXT

# said <command of bootstrap.sh>...: its standard error; its status in $status.
said() {
    status=0
    text=$(root="$folder/root" PATH="$folder/bin:$PATH" \
        sh -eu -c '. "$0"; "$@"' "$bootstrap" "$@" 2>&1 >"$folder/output") || status=$?
    lines=$(printf '%s\n' "$text" | wc -l)
}

# expect <what is expected> <command>...
expect() {
    what=$1
    shift
    if ! "$@"; then
        printf 'FAILED: %s; status %d, said:\n%s\n' "$what" "$status" "$text" >&2
        exit 1
    fi
}

says() {
    printf '%s\n' "$text" | grep -qF -e "$1"
}

said install_needs 'command:no-such-program no-such-package'
expect 'it fails' test "$status" -eq 1
expect 'a few lines' test "$lines" -le 6
expect 'one error' test "$(printf '%s\n' "$text" | grep -c 'error: ')" -eq 1
expect 'the package' says 'error: apt-get could not install: no-such-package'
expect 'the cause' says 'Err:1 http://deb.example'
expect 'where the rest is' says "$folder/root/build/apt.log"
expect 'the rest' grep -q '^W: Failed to fetch' "$folder/root/build/apt.log"

export FAILS_AT=0
said build release
expect 'it builds' test "$status" -eq 0
expect 'steps done of steps to do' says 'building build/release: 30 of 300 steps'
expect 'the end' says 'building build/release: 300 of 300 steps'
expect 'a line for a tenth' test "$lines" -eq 10
expect 'nothing on standard output' test ! -s "$folder/output"

FAILS_AT=200
said build release
expect 'it fails' test "$status" -eq 1
expect 'the error' says '200.cpp:1: error: no'
