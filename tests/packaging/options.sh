#!/bin/sh
# SPDX-License-Identifier: MIT
#
# A page has all options that its program shows, with what they take, and none besides:
# options.sh <options.awk> <page.md> <command>...
# Each command is a line for the shell that prints a help text.
set -eu
reader=$1
page=$2
shift 2

# "--name", or "--name ARGUMENT". CLI11's own words for arguments say nothing of what they are.
shown=$(for command in "$@"; do sh -c "$command"; done | awk -f "$reader" | awk -F '|' '
    $1 ~ /^--/ && $1 !~ /^--(help|help-all|version)$/ {
        print $1 ($2 == "" ? "" : $2 ~ /^(TEXT|UINT|FLOAT|INT)/ ? " ANY" : " " $2)
    }' | sort -u)
# In a list of definitions the term is the line before ": ".
written=$(awk '/^: / && term ~ /^`-/ { print term } { term = $0 }' "$page" |
    grep -oE -- '--[a-z][a-z-]*( [A-Za-z][A-Za-z/:]*)?' | sort -u)
for option in $(printf '%s\n' "$shown" | sed -n 's/ ANY$//p'); do
    written=$(printf '%s\n' "$written" | sed "s/^$option .*/$option ANY/")
done
test -n "$shown"
if test "$shown" != "$written"; then
    printf 'shown:\n%s\nwritten:\n%s\n' "$shown" "$written"
    exit 1
fi
