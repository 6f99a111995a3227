#!/bin/bash
# SPDX-License-Identifier: MIT
#
# What bash offers: completion.sh <completion file> <tavor>
set -eu
# shellcheck source=/dev/null
. "$1"
tavor=$2
failures=0

# offered <word...>: the completions of the last word, which may be empty, in lines.
offered() {
    COMP_WORDS=(tavor "$@")
    COMP_CWORD=$#
    COMPREPLY=()
    _tavor
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
expect 'no number beyond the last' '' "$(offered -s 458)"
expect 'nothing that is no name' '' "$(offered nothing)"

# Every case can be reached from some suite's prefix, none other is offered.
cases=$(for suite in $suites; do offered "${suite}_"; done | sort -u | grep -vxF "$suites")
expect 'all cases' "$(sort <<<"$guide" | md5sum)" "$(md5sum <<<"$cases")"
exit $((failures > 0))
