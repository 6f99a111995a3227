#!/bin/sh
# SPDX-License-Identifier: MIT
#
# Whether kel-explore has no finding about legal libraries, and finds out what they have chosen:
#
#   tools/dev/check-legal.sh <build folder> [sequences of each] [mixtures] [seed]
#
# The reference library under each value of each switch, and under mixtures in which half of the
# switches are taken another way. A line for each library with a finding, or with a choice that was
# not found out although it was by itself; then numbers. The exit status is 0 when there is no such
# line.
set -eu

test $# -ge 1 || { echo "usage: $0 <build folder> [sequences of each] [mixtures] [seed]" >&2; exit 2; }
build=$1
sequences=${2:-2000}
mixtures=${3:-100}
seed=${4:-1}
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# Lines: name, value, all but the usual one.
KEL_REFERENCE_LIST=options "$build/bin/tavor" >"$folder/options"
awk -F '\t' '{ n = split($3, values, /[ ,()]+/); for (i = 1; i <= n; i++) if (values[i] != "") print $1 "=" values[i] }' \
    "$folder/options" >"$folder/single"
awk -F = -v count="$mixtures" -v seed="$seed" '
    { if (!($1 in known)) { known[$1]; names[++all] = $1 } values[$1] = values[$1] " " $2 }
    END {
        srand(seed)
        for (i = 0; i < count; i++) {
            line = ""
            for (j = 1; j <= all; j++) {
                n = split(values[names[j]], of, " ")
                pick = int(rand() * 2 * n) + 1
                if (pick <= n) line = line names[j] "=" of[pick] " "
            }
            print line
        }
    }' "$folder/single" >"$folder/mixed"

# explore <choices> <number>: its output stands in $folder/text.
explore() {
    KEL_REFERENCE_OPTIONS=$1 "$build/bin/kel-explore" --lib "$build/lib/libkel.so" \
        --reference "$build/lib/libkel.so" --sequences "$sequences" --seed "$((seed + $2))" \
        >"$folder/text"
}

status=0
number=0
calls=0
told=0
: >"$folder/tellable"
while read -r choices; do
    number=$((number + 1))
    explore "$choices" "$number" || { echo "finding: $choices"; cat "$folder/text"; status=1; }
    calls=$((calls + $(sed -n 's/.* sequences, \([0-9]*\) calls .*/\1/p' "$folder/text")))
    found=$(sed -n "s/.*other than the reference library's: //p" "$folder/text")
    if test "$number" -le "$(wc -l <"$folder/single")"; then
        test "$found" != "$choices" || echo "$choices" >>"$folder/tellable"
        continue
    fi
    missed=''
    for choice in $choices; do
        if grep -qxF "$choice" "$folder/tellable"; then
            case " $found " in *" $choice "*) ;; *) missed="$missed $choice" ;; esac
        fi
    done
    if test -n "$missed"; then
        echo "not found out:$missed, of: $choices"
    else
        told=$((told + 1))
    fi
done <<LIBRARIES
$(cat "$folder/single" "$folder/mixed")
LIBRARIES
echo "$(wc -l <"$folder/single") values, $(wc -l <"$folder/tellable") told by calls; all of these found out in" \
    "$told of $mixtures mixtures; $calls calls"
test "$told" -eq "$mixtures" || status=1
exit "$status"
