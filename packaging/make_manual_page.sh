#!/bin/sh
# SPDX-License-Identifier: MIT
#
# Makes a manual page of a page in Markdown whose first line is "# name(section)":
#   make_manual_page.sh <lowdown> <gzip> <source> <version> <page.gz>
set -eu
lowdown=$1
gzip=$2
source=$3
version=$4
page=$5

name=$(sed -n '1s/^# \(.*\)(.)$/\1/p' "$source")
section=$(sed -n '1s/^# .*(\(.\))$/\1/p' "$source")
mkdir -p "${page%/*}"
# Pages that index others look for titles beside .SH, in capitals; \fC is groff's alone.
sed 1d "$source" |
    "$lowdown" -s -T man --nroff-nolinks -M shiftheadinglevelby=-1 -M "section=$section" \
        -M "title=$(echo "$name" | tr '[:lower:]' '[:upper:]')" -M "source=tavor $version" - |
    sed -e 's/\\fC/\\fB/g' -e '/^\.SH$/{N;s/\n/ /;y/abcdefghijklmnopqrstuvwxyz/ABCDEFGHIJKLMNOPQRSTUVWXYZ/}' |
    "$gzip" -9n >"$page"
