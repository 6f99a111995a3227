# SPDX-License-Identifier: MIT
# shellcheck shell=sh disable=SC2154 # its user sets $root
#
# Sourced by ./test, with $root set to the top folder: which tests a change can affect. What is linked
# anew the build knows; what is only started stands here.

# tests_of <program or library>: the tests that it is, or that start it, as regular expressions of
# their names.
tests_of() {
    case $1 in
    variants_test) ;; # a minute
    stress_test) echo 'stress\.short' ;;
    interface_in_c) echo 'interface\.' ;;
    option_probe) echo 'options_test\.' ;;
    handover_probe | operation_probe) echo 'syscalls_test\.' ;;
    keltrace_subject) echo 'keltrace_test\.' ;;
    fake_tavor) echo 'cli' ;;
    libracy_kel.so) echo 'histories' ;;
    *_test) echo "$1\." ;;
    tavor) echo '(approval_test|registry_test)\. registry\. campaign\.short' ;;
    tavor-more) echo '(more_test|noticed_test|approval_test)\. more\.' ;;
    libkeltrace.so) echo '(keltrace_test|approval_test)\. campaign\.short' ;;
    kel-campaign) echo '(jobs|watch|campaign_trouble)_test\. campaign\.short' ;;
    kel-mutate) echo 'campaign_trouble_test\.' ;;
    kel-explore) echo 'explore_test\. histories' ;;
    kel-sequence) echo 'sequence_test\.' ;;
    tavor-run) echo 'cli_[a-z]*_test\. cli\. packaging\.' ;;
    esac
}

# newer_than <file> <find argument...>: the names of what has been written since.
newer_than() {
    stamp=$1
    shift
    find "$@" -type f -newer "$stamp" -printf '%f\n'
}

# tests_after <file>: what has been built or written since can affect these tests.
tests_after() {
    for program in $(newer_than "$1" "$root/build/release/tests/bin" "$root/build/release/bin" \
        "$root/build/release/lib"); do
        tests_of "$program"
    done
    newer_than "$1" "$root/tests/campaign/pairs" | sed 's/.*/pairs_test\\. campaign\\.short/'
    newer_than "$1" "$root/run" "$root/tools/dev" | sed 's/.*/build\\.bootstrap/'
    # Rules of the sources and their documentation.
    echo 'structure_test\.'
}
