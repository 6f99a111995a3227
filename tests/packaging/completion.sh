#!/bin/bash
# SPDX-License-Identifier: MIT
#
# What shells offer, and what the page explains, is what the programs know:
# completion.sh <folder of completions> <tavor> <tavor-more> <tavor-run> <tavor-run's page>
set -eu
# shellcheck source=/dev/null
. "$1/tavor"
# shellcheck source=/dev/null
. "$1/tavor-run"
completions=$(realpath "$1")
tavor=$2
tavor_more=$3
tavor_run=$(realpath "$4")
page=$(realpath "$5")
completer=_tavor
program=tavor
failures=0

# offered <word...>: the completions of the last word, which may be empty, in lines.
offered() {
    COMP_WORDS=("$program" "$@")
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

program="tavor-more"
expect 'cases of tavor-more' "$("$tavor_more" -g | sed -n 's/^\(kel_more_packet[^ ]*\) .*/\1/p' | sort)" \
    "$(offered kel_more_packet | grep -vx kel_more_packet | sort)"

completer=_tavor_tools
program=$tavor_run

# formats_of <command> <argument...>: as the error of a wrong one has them, in lines.
formats_of() {
    "$tavor_run" "$@" --out nonsense 2>&1 | sed -n 's/.*no such format: nonsense (\(.*\))/\1/p' |
        sed 's/, /\n/g' | sort
}

expect commands 'report reproduce' "$(offered rep | sort | paste -sd ' ')"
expect 'options of list' '--failed --help --last --shard --shuffle --suites --tavor' \
    "$(offered list -- | sort -u | paste -sd ' ')"
expect 'options without a command' "$(offered run -- | sort)" "$(offered -- | sort)"
expect 'an option of several names' '--out --output' "$(offered --out | sort | paste -sd ' ')"
expect 'suites after a command' 'kel_reg_client kel_reg_tag' "$(offered run kel_reg_ | paste -sd ' ')"
expect 'a case' 'kel_packet_append_null_pkt' "$(offered --isolate kel_packet_append_null_p)"
expect 'no command after an option' '' "$(offered --isolate repo)"
expect 'a case of an option' 'kel_packet_append_null_pkt' \
    "$(offered run --bisect kel_packet_append_null_p)"
expect 'a case after =' 'kel_packet_append_null_pkt' \
    "$(offered run --gdb = kel_packet_append_null_p)"
expect 'when' 'auto always never' "$(offered --color '' | paste -sd ' ')"
expect 'cases for bisect' "$(sort <<<"$guide" | md5sum)" "$(offered bisect '' | sort | md5sum)"
expect 'nothing of a number' '' "$(offered --trace '')"

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch"
mkdir folder
touch file.jsonl
"$tavor_run" report /dev/null --out jsonl:empty >/dev/null || :
expect 'files of report' 'empty file.jsonl folder' "$(offered report '' | sort | paste -sd ' ')"
expect 'and then names' "$suites" "$(offered report file.jsonl '')"
expect 'files of compare' 'file.jsonl' "$(offered compare empty fil)"
expect 'a file of an option' 'file.jsonl' "$(offered --baseline fil)"
expect 'a folder of an option' 'folder' "$(offered --lib '')"
expect 'a file of a format' 'file.jsonl' "$(offered --out html : fil)"
for command in report compare history; do
    logs=(empty empty)
    [[ $command == report ]] && logs=(/dev/null)
    formats=$(formats_of "$command" "${logs[@]}")
    expect "a format of $command" text "$(grep -x text <<<"$formats")"
    expect "formats of $command" "$formats" "$(offered "$command" a --out '' | tr -d : | sort)"
done
# shellcheck disable=SC2016
expect 'formats on the page' "$(formats_of report /dev/null)" \
    "$(sed -n '/^| Format | What/,/^$/s/^| `\([a-z0-9]*\)`.*/\1/p' "$page" | sort)"

# specified <word...>: what the file for zsh asks of zsh's own function, in lines.
specified() {
    # shellcheck disable=SC2016 # for zsh
    zsh -f -c '_arguments() { print -rl -- "$@" }
        eval "_completer() { $(<$1)
        }"
        shift
        complete() { local -a words=("$@"); local -i CURRENT=$#; _completer }
        complete "$@"' zsh "$completions/_tavor-tools" "$program" "$@"
}

# Each option of the help of each program and command, as lines of "command --option".
folder=${tavor_run%/*}
tools=$(sed -n 's/^#compdef //p' "$completions/_tavor-tools")
expect 'the same tools in both shells' "$tools" \
    "$(sed -n '/complete -F _tavor_tools/,$p' "$completions/tavor-run" | tr '\n' ' ' |
        sed 's/.*_tavor_tools //; s/ *\\ */ /g; s/ $//')"
for tool in $tools; do
    program=$folder/$tool
    test -x "$program" || continue
    commands=$("$program" --help | sed -n '/^Subcommands:/,$s/^  \([a-z-]*\) .*/\1/p')
    expect "commands of $tool" "$(sort <<<"$commands")" \
        "$(offered '' | grep -vE '^kel_|^(empty|file.jsonl|folder)$' | sort)"
    for command in $commands; do
        options=$("$program" "$command" --help | grep -oE '^ +(-.,)?--[^ ]*' |
            grep -oE -- '--[a-z-]+' | sort)
        expect "options of $tool $command" "$options" "$(offered "$command" -- | sort)"
        if command -v zsh >/dev/null; then
            expect "options of $tool $command for zsh" "$options" \
                "$(specified "$command" '' | sed -nE 's/^\*?(--[a-z-]+)\[.*/\1/p' | sort)"
        fi
    done
done
if command -v zsh >/dev/null; then
    program=$tavor_run
    expect 'what zsh knows of an option' '*--baseline[earlier jsonl results to compare with]:FILE:_files' \
        "$(specified run '' | grep -F -- '--baseline')"
    expect 'what zsh knows of a log' '2:log:_files' "$(specified report '' | grep :log:)"
else
    echo "zsh is not installed: its completion was not tried"
fi
exit $((failures > 0))
