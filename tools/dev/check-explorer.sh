#!/bin/sh
# SPDX-License-Identifier: MIT
#
# Which faults of the reference library kel-explore finds, each within some seconds, and how long
# the sequences are that it hands over: tools/dev/check-explorer.sh <build folder> [seconds] [fault...]
# A line a fault: name, seconds until the first finding, calls of its sequence; "-": none. Then
# numbers of all. Two at a time for each processor would disturb each other: one is run.
set -eu

test $# -ge 1 || { echo "usage: $0 <build folder> [seconds] [fault...]" >&2; exit 2; }
build=$1
seconds=${2:-4}
test $# -lt 2 || shift
shift
library=$build/lib/libkel.so
if test $# -eq 0; then
    # shellcheck disable=SC2046 # a list of names
    set -- $(KEL_REFERENCE_LIST=faults "$build/bin/tavor" | cut -f 1)
fi
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

for fault in "$@"; do
    status=0
    KEL_REFERENCE_FAULTS="${fault%%:*}#1+:${fault#*:}" "$build/bin/kel-explore" \
        --lib "$library" --reference "$library" --seconds "$seconds" --fail-fast \
        --json "$folder/json" >"$folder/text" 2>"$folder/errors" || status=$?
    case $status in
    0) echo "$fault - -" ;;
    1)
        echo "$fault" "$(sed -n 's/^{"sequences".*"seconds":\([0-9.]*\).*/\1/p' "$folder/json")" \
            "$(sed -n '1s/.*"calls":\([0-9]*\).*/\1/p' "$folder/json")"
        ;;
    *)
        cat "$folder/errors" >&2
        exit 2
        ;;
    esac
done | tee "$folder/all"
test "$(wc -l <"$folder/all")" -eq $#

# middle_and_last <column>
middle_and_last() {
    awk -v column="$1" '$2 != "-" { print $column }' "$folder/all" | sort -n |
        awk '{ all[NR] = $1 } END { print "median " all[int((NR + 1) / 2)] ", longest " all[NR] }'
}
echo "$(awk '$2 != "-"' "$folder/all" | wc -l) of $# found"
echo "seconds: $(middle_and_last 2)"
echo "calls: $(middle_and_last 3)"
