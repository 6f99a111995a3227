#!/bin/sh
# SPDX-License-Identifier: MIT
#
# Builds tavor and the reference library for other machines and runs all cases there:
#
#   tools/dev/check-cross.sh [machine...]       i386, aarch64, powerpc, s390x; all without names
#
# aarch64, powerpc and s390x run under qemu-user, i386 on the kernel itself, which must be an
# x86-64 one. Missing packages are installed. The exit status is 0 if no case failed anywhere, and
# if the case on the metadata record failed wherever one field of it was not set, and if a call that
# was wrong there is named here, from its recording: powerpc and s390x have the bytes of a number the
# other way round.
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

# emulated <machine> <command...>, with the NAME=value words of $settings in its environment
emulated() {
    libraries=/usr/$(compiler_of "$1")
    emulator=qemu-$1-static
    case $1 in
    i386) emulator="$libraries/lib/ld-linux.so.2 --library-path $libraries/lib" ;;
    powerpc) emulator=qemu-ppc-static ;;
    esac
    shift
    # shellcheck disable=SC2086 # words
    QEMU_LD_PREFIX=$libraries timeout -k 5 600 env $settings $emulator "$@"
}

# count <verdict> <output file>
count() {
    grep -cE "(^| )$1" "$2" || true
}

# fails_at <field> <machine>: whether the case on the metadata record names the field
fails_at() {
    emulated "$2" "$tavor" kel_metadata_group_access_fields |
        grep -qE "FAIL : GET errors on one or more fields: $1 +$" && return
    say "$2: $1 is not compared"
    return 1
}

# check_fields <machine>: each of the 18 fields of the record is lost once. A length that is not set
# is as long as before: the shim changes it.
check_fields() {
    tavor="$root/build/cross-$1/bin/tavor"
    settings="KEL_REFERENCE_LIST=faults"
    kinds=$(emulated "$1" "$tavor" | sed -n 's/^metadata_set:\(loses_[a-z0-9_]*\).*/\1/p' |
        grep -vE '_(opaque|length)$')
    test "$(echo "$kinds" | wc -l)" -eq 17 || { say "$1: not 17 fields to lose" && return 1; }
    for kind in $kinds; do
        settings="KEL_REFERENCE_FAULTS=metadata_set#1:$kind"
        fails_at "$(echo "${kind#loses_}" | tr '[:lower:]' '[:upper:]')" "$1" || return 1
    done
    settings="LD_PRELOAD=$root/build/cross-$1/lib/libkeltrace.so
              KELTRACE_FAULTS=metadata_get#2:arg1[1]=1499"
    fails_at LENGTH "$1"
}

# check_explained <machine>: what was recorded there is explained on this machine, and the numbers
# that the device is given are the same here
check_explained() {
    tools="$root/build/release/bin"
    recording="$root/build/cross-$1/case.seq"
    recorder="LD_PRELOAD=$root/build/cross-$1/lib/libkeltrace.so KELTRACE_RECORD=$recording"
    settings="$recorder KEL_REFERENCE_FAULTS=trim_head#1+:keeps_offsets"
    emulated "$1" "$tavor" -t kel_packet_trim_head >/dev/null
    if ! "$tools/tavor-run" explain kel_packet_trim_head --recording "$recording" |
        grep -qx '  offset: expected 0, got 64'; then
        say "$1: the recording is not explained"
        return 1
    fi
    settings=$recorder
    emulated "$1" "$tavor" -t kel_region_invalid_get_info >/dev/null
    grep -qF 'hex(cdab0000)' "$recording" && "$tools/kel-sequence" diff "$recording" >/dev/null &&
        return
    say "$1: the device's requests are not recorded as on this machine"
    return 1
}

check() {
    machine=$1
    configure "cross-$machine" && build "cross-$machine" --target tavor --target kel --target keltrace || return 1
    output="$root/build/cross-$machine/tavor.txt"
    settings=
    ended=0
    emulated "$machine" "$root/build/cross-$machine/bin/tavor" >"$output" 2>&1 || ended=$?
    run=$(sed -n 's/^Summary: .*: *//p' "$output")
    printf '%-8s run %3d  PASS %3d  IGNORE %2d  FAIL %2d  exit status %d\n' "$machine" \
        "${run:-0}" "$(count 'PASS$' "$output")" "$(count 'IGNORE$' "$output")" \
        "$(count 'FAIL : ' "$output")" "$ended"
    grep -E '(^| )FAIL : ' "$output" && return 1
    test "$ended" -eq 0 && grep -qx 'Congratulations!' "$output" &&
        test "$run" -eq "$(grep -c '^TEST(' "$root/runner/test_list.def")" &&
        check_fields "$machine" && check_explained "$machine"
}

test $# -gt 0 || set -- i386 aarch64 powerpc s390x
needs="$RUN_NEEDS
header:CLI/CLI.hpp libcli11-dev
header:nlohmann/json.hpp nlohmann-json3-dev"
for machine in "$@"; do
    compiler=$(compiler_of "$machine")
    needs="$needs
command:$compiler-g++ g++-$compiler"
    test "$machine" = i386 || needs="$needs
command:qemu-s390x-static qemu-user-static"
done
install_needs "$needs"

configure release && build release --target tavor-run --target kel-sequence --target kel
status=0
for machine in "$@"; do
    check "$machine" || status=1
done
exit "$status"
