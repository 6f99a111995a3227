#!/bin/sh
# SPDX-License-Identifier: MIT
#
# Whether cases catch a library that keeps the caller's address or copies late, however tavor is
# optimised:
#
#   tools/dev/check-copies.sh [build folder]
#
# A case that reads back what it wrote must not leave that to what the compiler makes of dead memory.
# tavor is built at -O0, -Os and -O2; each case that has such a fault in tests/campaign/pairs runs
# with it. The exit status is 0 if all of them fail with the message that the table says.
set -eu

root=$(dirname -- "$(readlink -f -- "$0")")
root=$(dirname -- "$(dirname -- "$root")")
. "$root/tools/dev/bootstrap.sh"

build=${1:-$root/build/release}
campaign=$build/bin/kel-campaign
test -x "$campaign" || die "$campaign is not there: ./run builds it"

pairs=$(mktemp -d)
trap 'rm -rf "$pairs"' EXIT
for table in "$root"/tests/campaign/pairs/*.txt; do
    grep -E ':(keeps_address|copies_late)( |$)' "$table" >"$pairs/${table##*/}" || true
done

status=0
for level in 0 s 2; do
    folder=$build/copies-O$level
    say "-O$level: builds tavor"
    if ! cmake -S "$root" -B "$folder" -G Ninja -DCMAKE_BUILD_TYPE=None \
        "-DCMAKE_CXX_FLAGS=-O$level" -DTAVOR_TESTS=OFF >"$build/copies.log" 2>&1 ||
        ! cmake --build "$folder" --target tavor >>"$build/copies.log" 2>&1; then
        cat "$build/copies.log" >&2
        exit 1
    fi
    # shellcheck disable=SC2046 # one word a case
    LD_LIBRARY_PATH=$build/lib "$campaign" --quiet --tavor "$folder/bin/tavor" \
        --shim "$build/lib/libkeltrace.so" --pairs "$pairs" \
        $(cat "$pairs"/*.txt | cut -d ' ' -f 1 | sort -u) || status=1
done
exit "$status"
