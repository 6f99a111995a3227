#!/bin/sh
# SPDX-License-Identifier: MIT
#
# Builds tavor and the reference library for other machines and runs all cases there:
#
#   tools/dev/check-cross.sh [machine...]       i386, aarch64, powerpc, s390x; all without names
#
# aarch64, powerpc and s390x run under qemu-user, i386 on the kernel itself, which must be an
# x86-64 one. Missing packages are installed. The exit status is 0 if no case failed anywhere.
set -eu

root=$(dirname -- "$(readlink -f -- "$0")")
root=$(dirname -- "$(dirname -- "$root")")
. "$root/tools/dev/bootstrap.sh"

# compiler_of <machine>: the first part of its tools' names.
compiler_of() {
    case $1 in
    i386) echo i686-linux-gnu ;;
    aarch64 | powerpc | s390x) echo "$1-linux-gnu" ;;
    *) die "unknown machine $1; there are i386, aarch64, powerpc and s390x" ;;
    esac
}

# emulated <machine> <command...>
emulated() {
    case $1 in
    i386) set -- "$1" /usr/i686-linux-gnu/lib/ld-linux.so.2 --library-path \
        /usr/i686-linux-gnu/lib "$2" ;;
    powerpc) set -- "$1" qemu-ppc-static "$2" ;;
    *) set -- "$1" "qemu-$1-static" "$2" ;;
    esac
    libraries=/usr/$(compiler_of "$1")
    shift
    QEMU_LD_PREFIX=$libraries timeout -k 5 600 "$@"
}

# count <verdict> <output file>
count() {
    grep -cE "(^| )$1" "$2" || true
}

check() {
    machine=$1
    configure "cross-$machine" && build "cross-$machine" --target tavor --target kel || return 1
    output="$root/build/cross-$machine/tavor.txt"
    ended=0
    emulated "$machine" "$root/build/cross-$machine/bin/tavor" >"$output" 2>&1 || ended=$?
    run=$(sed -n 's/^Summary: .*: *//p' "$output")
    printf '%-8s run %3d  PASS %3d  IGNORE %2d  FAIL %2d  exit status %d\n' "$machine" \
        "${run:-0}" "$(count 'PASS$' "$output")" "$(count 'IGNORE$' "$output")" \
        "$(count 'FAIL : ' "$output")" "$ended"
    grep -E '(^| )FAIL : ' "$output" && return 1
    test "$ended" -eq 0 && grep -qx 'Congratulations!' "$output" &&
        test "$run" -eq "$(grep -c '^TEST(' "$root/runner/test_list.def")"
}

test $# -gt 0 || set -- i386 aarch64 powerpc s390x
needs="$RUN_NEEDS"
for machine in "$@"; do
    compiler=$(compiler_of "$machine")
    needs="$needs
command:$compiler-g++ g++-$compiler"
    test "$machine" = i386 || needs="$needs
command:qemu-s390x-static qemu-user-static"
done
install_needs "$needs"

status=0
for machine in "$@"; do
    check "$machine" || status=1
done
exit "$status"
