#!/bin/sh
# SPDX-License-Identifier: MIT
#
# Holds manual pages to what formatters say of them: manual.sh <page>...
set -eu
status=0
for page in "$@"; do
    if command -v mandoc >/dev/null; then
        mandoc -T lint -W warning "$page" || status=1
    fi
    if command -v groff >/dev/null; then
        complaints=$(groff -man -mandoc -t -ww -z "$page" 2>&1) || status=1
        if test -n "$complaints"; then
            printf '%s\n' "$complaints"
            status=1
        fi
    fi
    for part in NAME SYNOPSIS DESCRIPTION; do
        if ! grep -qx "\\.Sh $part" "$page"; then
            echo "$page: no $part"
            status=1
        fi
    done
done
exit "$status"
