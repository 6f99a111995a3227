#!/bin/bash
# SPDX-License-Identifier: MIT
#
# The campaign on two machines, both of them this one: SSH servers of the test's own on the loopback
# interface, each with a home folder of its own.
#
#   spread.sh losses|times <kel-campaign> <kel-campaign-spread> <tavor> <libkeltrace.so> \
#       <folder of pairs>
#
#   losses  with a few suites: one machine is lost in the middle, then the other; what is missing is
#           run when both are back, and the table is that of the run here
#   times   with all cases: nothing is lost; how long it takes here and there
set -euo pipefail

what=$1
program=$2
spread=$3
tavor=$4
subject=(--tavor "$tavor" --shim "$5" --pairs "$6")
sshd=$(PATH=$PATH:/usr/sbin:/sbin command -v sshd)
folder=$(mktemp -d)
declare -A servers ports
spreading=

# with_children <process>: it and all that come from it.
with_children() {
    local child
    echo "$1"
    { grep -lsx "PPid:[[:space:]]*$1" /proc/[0-9]*/status || true; } | cut -d / -f 3 |
        while read -r child; do
            with_children "$child"
        done
}

stop_server() {
    local process
    for process in $(with_children "${servers[$1]}"); do
        kill -KILL "$process" 2>/dev/null || true
    done
    wait "${servers[$1]}" 2>/dev/null || true
    unset "servers[$1]"
}

clean_up() {
    local name
    if [[ -n $spreading ]]; then
        kill -TERM "$spreading" 2>/dev/null || true
        wait "$spreading" 2>/dev/null || true
    fi
    for name in "${!servers[@]}"; do
        stop_server "$name"
    done
    rm -rf -- "$folder"
}
trap clean_up EXIT
trap 'exit 1' INT TERM HUP

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

ssh_to() {
    ssh -F "$folder/ssh_config" "$@" </dev/null
}

# start_server <name>: on a port that nobody has.
start_server() {
    local name=$1 try
    for try in {1..20}; do
        ports[$name]=$((20000 + (RANDOM % 4000) * 10 + try % 10))
        write_client_settings
        "$sshd" -D -e -f "$folder/$name/sshd_config" -p "${ports[$name]}" \
            2>>"$folder/$name/log" &
        servers[$name]=$!
        for _ in {1..100}; do
            kill -0 "${servers[$name]}" 2>/dev/null || break
            if ssh_to "$name" true 2>/dev/null; then
                return
            fi
            sleep 0.1
        done
        stop_server "$name"
    done
    cat "$folder/$name/log" >&2
    fail "no server $name"
}

write_client_settings() {
    local name
    for name in "${!ports[@]}"; do
        cat <<TEXT
Host $name
    HostName 127.0.0.1
    Port ${ports[$name]}
TEXT
    done >"$folder/ssh_config"
    cat >>"$folder/ssh_config" <<TEXT
Host *
    User $(id -un)
    IdentityFile $folder/key
    IdentitiesOnly yes
    StrictHostKeyChecking no
    UserKnownHostsFile /dev/null
    LogLevel ERROR
    BatchMode yes
    ConnectTimeout 10
TEXT
}

make_server() {
    local name=$1
    mkdir -p "$folder/$name/home" "$folder/$name/tmp"
    ssh-keygen -q -t ed25519 -N '' -f "$folder/$name/host_key"
    cat >"$folder/$name/run" <<TEXT
#!/bin/sh
export HOME='$folder/$name/home' TMPDIR='$folder/$name/tmp'
cd "\$HOME" && exec /bin/sh -c "\$SSH_ORIGINAL_COMMAND"
TEXT
    chmod +x "$folder/$name/run"
    cat >"$folder/$name/sshd_config" <<TEXT
ListenAddress 127.0.0.1
HostKey $folder/$name/host_key
AuthorizedKeysFile $folder/key.pub
PidFile none
StrictModes no
UsePAM no
PermitRootLogin yes
PasswordAuthentication no
MaxStartups 100
# The shell that starts the command is not to read the files of whoever runs the test.
SetEnv HOME=$folder/$name/home
ForceCommand $folder/$name/run
TEXT
}

# Started by root, the server insists on it.
[[ $(id -u) -ne 0 ]] || mkdir -p /run/sshd
ssh-keygen -q -t ed25519 -N '' -f "$folder/key"
for name in first second; do
    make_server "$name"
    start_server "$name"
    echo "2/ssh -F $folder/ssh_config $name" >>"$folder/hosts"
done

# spread_into <folder> <name>...
spread_into() {
    local into=$1
    shift
    HOME=$folder/user "$spread" --program "$program" --hosts "$folder/hosts" --into "$into" \
        --quiet -- "${subject[@]}" "$@"
}
mkdir "$folder/user"

# seconds <command>...: into $took
seconds() {
    local begin=$EPOCHREALTIME
    "$@"
    took=$(awk -v begin="$begin" -v end="$EPOCHREALTIME" 'BEGIN { printf "%.1f s", end - begin }')
}

# same_table <local> <spread>
same_table() {
    if ! cmp "$1" "$2"; then
        diff "$1" "$2" | head -n 20 >&2
        fail "another table than that of a local run"
    fi
}

# run_here [argument...]
run_here() {
    if ! "$program" "${subject[@]}" --quiet "$@" 2>"$folder/here.err"; then
        cat "$folder/here.err" >&2
        fail "the run here"
    fi
}

times() {
    subject+=(--library-path "$(dirname "$tavor")/../lib")
    seconds run_here --jobs 4 >"$folder/here.txt"
    echo "here, four runs at once: $took"
    seconds spread_into "$folder/whole" >"$folder/there.txt"
    echo "on two machines, two runs at once on each: $took"
    same_table "$folder/here.txt" "$folder/there.txt"
    tail -n 2 "$folder/there.txt"
    awk -F '\t' 'NR > 1 { count[$2]++ } END { for (host in count) print count[host], host }' \
        "$folder/whole/jobs.log"
}

records() {
    grep -c '' "$folder/lost/results.jsonl" 2>/dev/null || true
}

# until_records <number>
until_records() {
    for _ in {1..600}; do
        [[ $(records) -lt $1 ]] || return 0
        sleep 0.1
    done
    fail "the campaign does not get on"
}

# Leaves the table in there.txt.
lose_machines() {
    local status=0
    spread_into "$folder/lost" >"$folder/there.txt" 2>"$folder/lost.err" &
    spreading=$!
    until_records 40
    stop_server second
    echo "one lost after $(records) results"
    until_records 150
    stop_server first
    echo "the other after $(records)"
    wait "$spreading" || status=$?
    spreading=
    tail -n 2 "$folder/lost.err"
    [[ $status -eq 2 ]] || fail "without machines: exit status $status"
    [[ ! -s $folder/there.txt ]] || fail "a table of what is incomplete"
    cp "$folder/lost/results.jsonl" "$folder/before.jsonl"

    start_server first
    start_server second
    seconds spread_into "$folder/lost" >"$folder/there.txt"
    echo "the rest: $took"
    tail -n 2 "$folder/there.txt"
}

ids() {
    grep -o '"id":"[^"]*".*"library"' | sed 's/","library.*//' | sort -u
}

# What there was before stays, and is not run again.
check_resumed() {
    local size again
    size=$(stat -c %s "$folder/before.jsonl")
    cmp -n "$size" "$folder/before.jsonl" "$folder/lost/results.jsonl"
    ids <"$folder/before.jsonl" >"$folder/before.ids"
    tail -c +"$((size + 1))" "$folder/lost/results.jsonl" | ids >"$folder/after.ids"
    [[ -s $folder/before.ids && -s $folder/after.ids ]] || fail "nothing to go on with"
    again=$(comm -12 "$folder/before.ids" "$folder/after.ids")
    [[ -z $again ]] || fail "run again: $again"
}

check_nothing_is_left() {
    local name left
    for name in first second; do
        left=$(find "$folder/$name/home" -mindepth 1)
        [[ -z $left ]] || fail "on the machine $name: $left"
    done
    left=$(find "$folder/user" -mindepth 1)
    [[ -z $left ]] || fail "in the user's home folder: $left"
}

# Without GNU parallel it names the package.
check_needs() {
    local tool complaint
    mkdir "$folder/tools"
    for tool in bash cat dirname grep readlink; do
        ln -s "$(command -v "$tool")" "$folder/tools/$tool"
    done
    complaint=$(PATH=$folder/tools spread_into "$folder/needs" 2>&1) && fail "runs without parallel"
    [[ $complaint == *"Debian's package: parallel" ]] || fail "without parallel: $complaint"
}

check_needs
case $what in
times) times ;;
losses)
    # Some hundred jobs, without those that wait: what is lost and found again is the jobs.
    subject+=(kel_role kel_tlv)
    run_here --jobs 4 >"$folder/here.txt"
    lose_machines
    same_table "$folder/here.txt" "$folder/there.txt"
    check_resumed
    ;;
*) fail "unknown: $what" ;;
esac
check_nothing_is_left
