#!/bin/sh
# SPDX-License-Identifier: MIT
#
# The page of all cases has each of them, in order, with a sentence and its place:
# catalogue.sh <page> <tavor>
set -eu
page=$1
tavor=$2

# Names, without the columns beside them.
wanted=$("$tavor" -g | sed 's/ .*//')
# shellcheck disable=SC2016
row='^| [0-9]* | `\([a-z0-9_]*\)` | [A-Z][^|]*: [^|]*\. | suites\/[a-z_]*\.cpp:[0-9]* | .*'
found=$(sed -n "s/$row/\\1/p" "$page")
if test "$wanted" != "$found"; then
    echo "the page has other cases than the list, or some without a sentence or a place"
    exit 1
fi
# A few name their operations in tables only.
unnamed=$(grep '^| [0-9]' "$page" | grep -c ': its calls must ' || :)
if test "$unnamed" -gt 5; then
    echo "nothing is said of what $unnamed cases call"
    exit 1
fi
# shellcheck disable=SC2016
for sentence in 'Append null buffer: `kel_buf_append` must be refused, with `EINVAL`.' \
    'Buffer free chain: always declines.' \
    'Get length: `kel_buf_get_length` must do what the contract says; the length must be right.'; do
    if ! grep -qF "| $sentence |" "$page"; then
        echo "no case is said to do this: $sentence"
        exit 1
    fi
done
