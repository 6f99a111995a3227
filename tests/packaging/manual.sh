#!/bin/sh
# SPDX-License-Identifier: MIT
#
# Manual pages are well-formed and can be found by what they are about: manual.sh <page.gz>...
set -eu
test $# -gt 0
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
status=0
for page in "$@"; do
    gzip -dc "$page" >"$scratch/page"
    complaints=$(groff -man -t -ww -z "$scratch/page" 2>&1) || status=1
    if test -n "$complaints"; then
        printf '%s\n' "$complaints"
        status=1
    fi
    for part in NAME SYNOPSIS DESCRIPTION; do
        if ! grep -qx "\\.SH $part" "$scratch/page"; then
            echo "$page: no $part"
            status=1
        fi
    done
    name=$(basename "$page" | sed 's/\..\.gz$//')
    if ! grep -q "^$name - " "$scratch/page"; then
        echo "$page: NAME does not begin with \"$name - \""
        status=1
    fi
done
exit "$status"
