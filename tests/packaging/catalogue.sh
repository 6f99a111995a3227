#!/bin/sh
# SPDX-License-Identifier: MIT
#
# The page of all cases has each of them, in order, with its place and what it calls:
# catalogue.sh <page> <tavor>
set -eu
page=$1
tavor=$2

# Names, without the columns beside them.
wanted=$("$tavor" -g | sed 's/ .*//')
# shellcheck disable=SC2016
found=$(sed -n 's/^| [0-9]* | `\([a-z0-9_]*\)` | suites\/[a-z_]*\.cpp:[0-9]* | .*/\1/p' "$page")
if test "$wanted" != "$found"; then
    echo "the page has other cases than the list, or some without a place"
    exit 1
fi
# Some decline before they call anything, or leave all of it to what they share.
empty=$(grep '^| [0-9]' "$page" | grep -c '| *| *|$' || :)
if test "$empty" -gt $(($(echo "$wanted" | wc -l) / 20)); then
    echo "nothing is said of $empty cases"
    exit 1
fi
