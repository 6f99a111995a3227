#!/bin/bash
# SPDX-License-Identifier: MIT
#
# The commands of a page, run as they are written there, but for those of documented.txt:
# documented.sh <cmake> <build folder> <source folder> <page>
set -eu
cmake=$1
build=$2
source=$3
page=$4
here=$source/tests/packaging
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# The folder of the pages: an installed tree, the sources with a build, and what the commands begin with.
prepare() {
    for component in tavor tools reference dev; do
        "$cmake" --install "$build" --prefix "$scratch/usr" --component "$component" >/dev/null
    done
    library=$(find "$scratch/usr" -name libkel.so)
    libraries=${library%/*}

    mkdir "$scratch/work" "$scratch/bin" "$scratch/platform" "$scratch/state"
    cd "$scratch/work"
    for each in "$source"/*; do
        [[ ${each##*/} == build ]] || ln -s "$each" .
    done
    mkdir build builds builds/1 builds/2 reports
    ln -s "$build" build/release
    for folder in . build builds/1 builds/2 "$scratch/platform"; do
        ln -s "$library" "$folder/libkel.so"
    done
    printf 'board-1\nboard-2\n' >devices
    # shellcheck disable=SC2016 # for the script
    printf '#!/bin/sh\nwhile [ "${1#-}" != "$1" ]; do shift; done\nshift\nexec sh -c "$*"\n' >"$scratch/bin/ssh"
    chmod +x "$scratch/bin/ssh"
    export PATH="$scratch/bin:$scratch/usr/bin:$PATH" LC_ALL=C XDG_STATE_HOME="$scratch/state"
    export LD_LIBRARY_PATH="$scratch/platform" PLATFORM="$scratch/platform"
    tavor kel_tlv kel_role >console.log
    for each in accepted tavor reports/1 reports/2 before; do
        tavor-run report console.log kel_tlv kel_role --out "jsonl:$each.jsonl" >/dev/null
    done
    tavor-run kel_tlv kel_role --quiet --out jsonl:board-2.last >/dev/null
    env KELTRACE_RECORD=case.seq LD_PRELOAD="$libraries/libkeltrace.so" tavor -t kel_packet_append >/dev/null
}

# Where the page's paths are here.
placed() {
    sed "s# --closed##; s#/opt/tavor/#@/usr/#g; s#/usr/lib/platform#@/platform#g
        s#/usr/lib/tavor#@libraries#g; s#\([^@]\)/usr/\(bin\|share\)/#\1@/usr/\2/#g
        s#/opt/new/lib#@/platform#g; s#/shared/tavor#@/work#g; s#/tmp/#@/#g
        s#@libraries#$libraries#g; s#@/#$scratch/#g" <<<"$1"
}

# expected <command>: a line of documented.txt about it, or nothing.
expected() {
    while IFS='|' read -r of part status _; do
        local words
        words=$(sed 's/^ //; s/ $//' <<<"$part")
        if [[ ${of% } == "$page" && " $1" == *" $words"* ]]; then
            echo "$part|${status// /}"
            return
        fi
    done < <(grep -v '^#' "$here/documented.txt")
}

commands=$(awk -f "$here/documented.awk" "$source/$page")
if [[ -n $commands ]]; then prepare; fi

failures=0
ran=0
used=
while read -r command; do
    [[ -n $command ]] || continue
    rule=$(expected "$command")
    used+="${rule%|*}"$'\n'
    allowed=${rule#*|}
    first=$(sed -E "s/^((env|export) )?([A-Z_]+=('[^']*'|\"[^\"]*\"|[^ ]*) *)*//; s/ .*//" <<<"$command")
    if [[ $allowed == no ]]; then
        continue
    elif [[ $first =~ ^(gdb|parallel|prove|strings)$ ]] && ! command -v "$first" >/dev/null; then
        echo "not run, $first is not installed: $command"
        continue
    fi
    ran=$((ran + 1))
    status=0
    line=$(placed "$command")
    # Pages about what is built begin in its folder.
    [[ $line != bin/* || -e bin ]] || line="(cd build/release && $line)"
    eval "$line" >"$scratch/out" 2>"$scratch/errors" </dev/null || status=$?
    [[ $command == *'&' ]] && sleep 2
    if [[ " ${allowed:-0 1} " != *" $status "* ]]; then
        echo "status $status: $command"
        tail -n 5 "$scratch/out" "$scratch/errors"
        failures=$((failures + 1))
    fi
done <<<"$commands"
echo "$page: $ran commands were run"

while IFS='|' read -r of part _; do
    if [[ ${of% } == "$page" && $used != *"$part"* ]]; then
        echo "documented.txt excuses a command that $page does not have: $part"
        failures=$((failures + 1))
    fi
done < <(grep -v '^#' "$here/documented.txt")
exit $((failures > 0))
