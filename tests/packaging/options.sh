#!/bin/sh
# SPDX-License-Identifier: MIT
#
# A page has all options that its program shows, and none besides: options.sh <page> <command>...
# Each command is a line for the shell that prints a help text.
set -eu
page=$1
shift

shown=$(for command in "$@"; do sh -c "$command"; done |
    sed -n 's/^ *\(-.,\)\{0,1\}\(--[a-z-]*\).*/\2/p' | grep -vxE -- '--help(-all)?|--version' |
    sort -u)
written=$(sed -n 's/^\.It Fl \(. , \)\{0,1\}-\([a-z-]*\).*/--\2/p' "$page" | sort -u)
test -n "$shown"
if test "$shown" != "$written"; then
    printf 'shown:\n%s\nwritten:\n%s\n' "$shown" "$written"
    exit 1
fi
