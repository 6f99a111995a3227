#!/bin/bash
# SPDX-License-Identifier: MIT
#
# What bash offers: completion.sh <folder of completions> <tavor> <tavor-run>
set -eu
# shellcheck source=/dev/null
. "$1/tavor"
# shellcheck source=/dev/null
. "$1/tavor-run"
tavor=$2
tavor_run=$3
completer=_tavor
failures=0

# offered <word...>: the completions of the last word, which may be empty, in lines.
offered() {
    COMP_WORDS=("${completer#_}" "$@")
    COMP_CWORD=$#
    COMPREPLY=()
    "$completer"
    [[ ${#COMPREPLY[@]} -eq 0 ]] || printf '%s\n' "${COMPREPLY[@]}"
}

# expect <what> <wanted> <got>
expect() {
    if [[ $2 != "$3" ]]; then
        printf '%s: wanted "%s", got "%s"\n' "$1" "$2" "$3"
        failures=$((failures + 1))
    fi
}

guide=$("$tavor" -g | sed 's/ .*//')
suites=$(offered '')

expect options '-f -g -h -l -r -s -t' "$(offered - | paste -sd ' ')"
expect 'nothing behind --' '' "$(offered -- -)"
expect suites "kel_reg_client kel_reg_tag" "$(offered kel_reg_ | paste -sd ' ')"
expect 'a suite and its cases' "$(printf 'kel_tlv\n'; grep '^kel_tlv_' <<<"$guide")" \
    "$(offered kel_tlv)"
expect cases 'kel_packet_append_null_pkt' "$(offered -f kel_packet_append_null_p)"
expect 'a suite that begins others' "$(grep -c '^kel_buf' <<<"$suites")" \
    "$(offered kel_buf | wc -l)"
expect numbers '457' "$(offered -s 457)"
expect 'numbers behind joined letters' '457' "$(offered -fs 457)"
expect 'no number beyond the last' '' "$(offered -s "$(wc -l <<<"$guide")")"
expect 'nothing that is no name' '' "$(offered nothing)"

# Every case can be reached from some suite's prefix, none other is offered.
cases=$(for suite in $suites; do offered "${suite}_"; done | sort -u | grep -vxF "$suites")
expect 'all cases' "$(sort <<<"$guide" | md5sum)" "$(md5sum <<<"$cases")"

completer=_tavor_run
for command in run list report compare bisect history explain reproduce; do
    expect "options of $command" \
        "$("$tavor_run" "$command" --help | grep -oE '^ +(-.,)?--[^ ]*' | grep -oE -- '--[a-z-]+' |
            grep -vx -- --help | sort)" \
        "$(offered "$command" -- | sort)"
done
expect 'options without a command' "$(offered run -- | sort)" "$(offered -- | sort)"
expect commands 'report reproduce' "$(offered rep | sort | paste -sd ' ')"
expect 'suites behind a command' 'kel_reg_client kel_reg_tag' "$(offered run kel_reg_ | paste -sd ' ')"
expect 'a case' 'kel_packet_append_null_pkt' "$(offered --isolate kel_packet_append_null_p)"
expect formats 'html: jsonl: junit: lava: tap13: tap: text:' \
    "$(offered --out '' | sort | paste -sd ' ')"
for format in $(offered --out ''); do
    "$tavor_run" report /dev/null --out "$format/dev/null" >/dev/null || status=$?
    expect "format $format" 3 "$status" # nothing ran
    expect "format $format" '' "$("$tavor_run" report /dev/null --out "$format/dev/null" 2>&1 |
        grep 'no such format')"
done
expect 'formats of compare' 'html: jsonl: text:' \
    "$(offered compare a --out '' | sort | paste -sd ' ')"
expect 'formats of history' 'html: text:' \
    "$(offered history a --out '' | sort | paste -sd ' ')"
expect 'cases for bisect' "$(sort <<<"$guide" | md5sum)" "$(offered bisect '' | sort | md5sum)"
exit $((failures > 0))
