#!/bin/bash
# SPDX-License-Identifier: MIT
#
# What shells offer, and what the page explains, is what the programs know:
# completion.sh <folder of completions> <tavor> <tavor-run> <tavor-run's page>
set -eu
# shellcheck source=/dev/null
. "$1/tavor"
# shellcheck source=/dev/null
. "$1/tavor-run"
tavor=$2
tavor_run=$3
page=$4
zsh=$1/_tavor-run
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

# options_of <command>: as its help has them, in lines.
options_of() {
    "$tavor_run" "$1" --help | grep -oE '^ +(-.,)?--[^ ]*' | grep -oE -- '--[a-z-]+' |
        grep -vx -- --help | sort
}
# formats_of <command> <argument...>: as the error of a wrong one has them, in lines.
formats_of() {
    "$tavor_run" "$@" --out nonsense 2>&1 | sed -n 's/.*no such format: nonsense (\(.*\))/\1/p' |
        sed 's/, /\n/g' | sort
}

completer=_tavor_run
for command in run list report compare bisect history explain reproduce diagnose; do
    expect "options of $command" \
        "$(options_of "$command")" "$(offered "$command" -- | sort)"
    for option in $(options_of "$command"); do
        grep -qE -- "$option\\b" "$zsh" || expect "$option for zsh" there missing
        grep -qE -- "(^|, |\[)\`?$option\\b" "$page" || expect "$option on the page" there missing
    done
done
expect 'options without a command' "$(offered run -- | sort)" "$(offered -- | sort)"
expect commands 'report reproduce' "$(offered rep | sort | paste -sd ' ')"
expect 'suites behind a command' 'kel_reg_client kel_reg_tag' "$(offered run kel_reg_ | paste -sd ' ')"
expect 'a case' 'kel_packet_append_null_pkt' "$(offered --isolate kel_packet_append_null_p)"
formats=$(formats_of report /dev/null)
expect 'a format' text "$(grep -x text <<<"$formats")"
expect formats "$formats" "$(offered --out '' | tr -d : | sort)"
expect 'formats for zsh' "$formats" \
    "$(sed -n 's/^formats=(\(.*\))/\1/p' "$zsh" | tr -d : | tr ' ' '\n' | sort)"
# shellcheck disable=SC2016
expect 'formats on the page' "$formats" \
    "$(sed -n '/^| Format | What/,/^$/s/^| `\([a-z0-9]*\)`.*/\1/p' "$page" | sort)"
empty=$(mktemp)
"$tavor_run" report /dev/null --out "jsonl:$empty" >/dev/null || :
for command in compare history; do
    formats=$(formats_of "$command" "$empty" "$empty")
    expect "a format of $command" text "$(grep -x text <<<"$formats")"
    expect "formats of $command" "$formats" "$(offered "$command" a --out '' | tr -d : | sort)"
    expect "formats of $command for zsh" "$formats" \
        "$(sed -n "/^$command)/,/;;/s/.*formats=(\\(.*\\))/\\1/p" "$zsh" | tr -d : |
            tr ' ' '\n' | sort)"
done
rm -f "$empty"
expect 'cases for bisect' "$(sort <<<"$guide" | md5sum)" "$(offered bisect '' | sort | md5sum)"
exit $((failures > 0))
