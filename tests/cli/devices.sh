#!/bin/sh
# SPDX-License-Identifier: MIT
#
# The recipes for many devices, as their page has them, with devices that are folders of this
# machine: devices.sh <page> <tavor-run> <stand-in for tavor>
set -eu
page=$1
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
mkdir "$folder/bin"
ln -s "$2" "$folder/bin/tavor-run"
PATH=$folder/bin:$PATH
FAKE=$3
XDG_STATE_HOME=$folder/state
PARALLEL_HOME=$folder/parallel # where it remembers that its notice was read
export PATH FAKE XDG_STATE_HOME PARALLEL_HOME
mkdir "$PARALLEL_HOME"
: >"$PARALLEL_HOME/will-cite"
cd "$folder"

# ssh <device> <command>: what happens there stands in a file with the device's name.
cat >bin/ssh <<'DEVICE'
#!/bin/sh
device=$1
shift
echo "$device: $*" >>calls
if test -e "$device.gone"; then
    exit 255
fi
if test "$*" = 'uname -n'; then
    echo "$device"
    exit
fi
FAKE_TAVOR=$(cat "$device.script" 2>/dev/null)
export FAKE_TAVOR
exec sh -c "$(echo "$*" | sed "s|/opt/tavor/bin/tavor|$FAKE|g")"
DEVICE
chmod +x bin/ssh

# recipe <heading> <number>: that block of the section.
recipe() {
    awk -v heading="### $1" -v wanted="$2" '
        /^#/ { inside = $0 == heading }
        inside && /^    / { if (!open) block++; open = 1; if (block == wanted) print substr($0, 5) }
        !/^    / { open = 0 }' "$page"
}

# expect <what> <wanted status> <status>
expect() {
    if test "$2" -ne "$3"; then
        echo "$1: status $3"
        exit 1
    fi
}

status() {
    got=0
    sh -eu -c "$1" >out 2>err || got=$?
}

# has <text>: in what was printed.
has() {
    if ! grep -qE -- "$1" out; then
        echo "not printed: $1"
        cat out err
        exit 1
    fi
}

one='One selection on each device'
parts='A selection in shards on equal devices'
printf 'board-%d\n' 1 2 3 >devices
echo 'fail=kel_role_always:only_here' >board-2.script

status "$(recipe "$one" 1)"
expect 'one device of three fails' 1 "$got"
has '^board-2.*fail .*only here$'
for device in board-1 board-2 board-3; do
    test "$(grep -c '"type":"case"' "$device.jsonl")" -eq 51
done

rm board-2.script
status "$(recipe "$one" 2 | sed 's/tavor-run/& -q --color never/')"
expect 'what failed, once more' 0 "$got"
test "$(grep -c '"type":"case"' board-2.last)" -eq 1

status "$(recipe "$one" 3)"
expect 'devices differ' 1 "$got"
has '^ +board-1 +board-2 +board-3$'
has '^kel_role_always +pass +fail +pass$'
has '^results +51 +51 +51$'
has '^1 of 51 cases differ$'

# What the job log has is not run again; a device that was out of reach is.
: >calls
status "$(recipe "$one" 1)"
expect 'nothing left to do' 0 "$got"
test ! -s calls

rm -- *.jsonl *.last
: >board-3.gone
status "$(recipe "$parts" 1)"
expect 'one device is out of reach' 1 "$got"
status "$(recipe "$parts" 2)"
expect 'a shard has no results' 3 "$got"
rm board-3.jsonl
status "$(recipe "$parts" 2)"
expect 'a shard is missing' 2 "$got"
has '^shard 3/3 is missing$'
rm board-3.gone
sed -i '/board-3/d' shards.joblog
status "$(recipe "$parts" 1)"
expect 'the last shard' 0 "$got"
status "$(recipe "$parts" 2)"
expect 'all shards' 0 "$got"
has "^$(grep -c '^TEST(' "$(dirname -- "$page")/../runner/test_list.def") cases in 3 shards of one run$"
has '^results +153 +153 +152$'
