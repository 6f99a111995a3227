#!/bin/sh
# SPDX-License-Identifier: MIT
#
# Prints what tavor might: sham.sh <kind> <case>

header() {
    printf 'Name                                     Verdict  Info\n'
    printf '===========================================================================\n'
}

summary() {
    printf '==========================================================================\n'
    printf 'Summary: Number of tests run:      1\n'
    printf '         Number of tests passed:   %d\n' "$1"
    printf '         Number of tests failed:   %d\n' "$2"
    if test "$2" -eq 0; then
        echo 'Congratulations!'
    fi
}

# verdict <case> <text> <passed> <failed>
verdict() {
    header
    printf '%-40.40s %s\n' "$1" "$2"
    summary "$3" "$4"
}

case $1 in
pass) verdict "$2" PASS 1 0 ;;
progress)
    header
    printf '%-40.40s %s\n%s\n' "$2" 'a line of its own' PASS
    summary 1 0
    ;;
ignore) verdict "$2" IGNORE 1 0 ;;
fail) verdict "$2" 'FAIL : kel_append failed' 0 1 ;;
other_case) verdict "${2}_too" PASS 1 0 ;;
silent)
    header
    summary 0 0
    ;;
crash)
    verdict "$2" PASS 1 0
    kill -s SEGV $$
    ;;
behind_summary)
    verdict "$2" PASS 1 0
    echo 'ERROR: 8 bytes leaked'
    ;;
hang)
    verdict "$2" PASS 1 0
    exec sleep 30
    ;;
esac
