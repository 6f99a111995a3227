#!/bin/sh
# SPDX-License-Identifier: MIT
#
# A page has all options that its program shows, and none besides: options.sh <page.md> <command>...
# Each command is a line for the shell that prints a help text.
set -eu
page=$1
shift

shown=$(for command in "$@"; do sh -c "$command"; done |
    sed -n 's/^ *\(-.,\)\{0,1\}\(--[a-z-]*\).*/\2/p' | grep -vxE -- '--help(-all)?|--version' |
    sort -u)
# In a list of definitions the term is the line before ": ".
written=$(awk '/^: / && term ~ /^`-/ { print term } { term = $0 }' "$page" |
    grep -oE -- '--[a-z][a-z-]*' | sort -u)
test -n "$shown"
if test "$shown" != "$written"; then
    printf 'shown:\n%s\nwritten:\n%s\n' "$shown" "$written"
    exit 1
fi
