#!/bin/sh
# SPDX-License-Identifier: MIT
#
# Whether ./test --changed knows what each program of a build is tested by, and takes what was written
# since a moment and no more: changed.sh <tools/dev/changed.sh> <build folder>
set -eu

# shellcheck source=tools/dev/changed.sh
. "$1"
build=$2
folder=$(mktemp -d)
trap 'rm -rf -- "$folder"' EXIT

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

(cd "$build" && ctest --show-only) | sed -n 's/^ *Test *#[0-9]*: //p' >"$folder/names"
test -s "$folder/names" || fail "no tests in $build"

# Programs that no quick test starts, or whose tests take too long between two edits.
left_out=' variants_test growth_bench library_bench tavor-bench kel-campaign-spread kel-known-faults
 kel-mutate-library sequence_all_cases_test sequence_all_faults_test '
for program in "$build"/tests/bin/* "$build"/bin/*; do
    name=$(basename "$program")
    case $left_out in *" $name"[!a-z-]*) continue ;; esac
    # What an earlier state of the sources left there.
    grep -q "^build .*bin/$name: " "$build/build.ninja" || continue
    tests=$(tests_of "$name")
    test -n "$tests" || fail "nothing is known to test $name"
    for pattern in $tests; do
        grep -Eq "^$pattern" "$folder/names" || fail "$name: there is no test $pattern"
    done
done

root=$folder/root
for made in build/release/tests/bin/buf_test build/release/bin/tavor-run build/release/lib/libkel.so \
    tests/campaign/pairs/kel_buf.txt tools/dev/lint run; do
    mkdir -p "$root/$(dirname "$made")"
    touch -d '2 hours ago' "$root/$made"
done
touch -d '1 hour ago' "$folder/stamp"
test "$(tests_after "$folder/stamp")" = 'structure_test\.' || fail "what is older counts as changed"
touch "$root/build/release/tests/bin/buf_test" "$root/tests/campaign/pairs/kel_buf.txt"
test "$(tests_after "$folder/stamp" | tr '\n' ' ')" = \
    'buf_test\. pairs_test\. campaign\.short structure_test\. ' ||
    fail "after two changes: $(tests_after "$folder/stamp")"
