#!/bin/bash
# SPDX-License-Identifier: MIT
#
# Shows that ./run and ./test need nothing but the base system. As root, with debootstrap:
#
#   tools/dev/check-bare-machine.sh [-d folder] [-k] [command]
#
#   -d  where to make the machine; one that is there already is used as it is
#   -k  keep the folder
#
# The machine gets a clone of what is committed here. Without a command it runs
# `./run kel_reg_client kel_reg_tag` and then `./test`.
set -euo pipefail

source=$(git -C "$(dirname -- "$(readlink -f -- "$0")")" rev-parse --show-toplevel)
suite=${BARE_SUITE:-bookworm}
mirror=${BARE_MIRROR:-http://deb.debian.org/debian}
machine=
keep=no

while getopts d:k option; do
    case $option in
    d) machine=$OPTARG ;;
    k) keep=yes ;;
    *)
        echo "usage: ${0##*/} [-d folder] [-k] [command]" >&2
        exit 2
        ;;
    esac
done
shift $((OPTIND - 1))
command=${*:-./run kel_reg_client kel_reg_tag && ./test}

if [[ $(id -u) -ne 0 ]]; then
    echo "${0##*/}: only root can make the machine" >&2
    exit 2
fi
[[ -n $machine ]] || machine=$(mktemp -d)
mkdir -p "$machine"
machine=$(readlink -f -- "$machine")

clean_up() {
    local point
    for point in dev/shm dev/pts dev sys proc; do
        if mountpoint -q "$machine/$point"; then
            umount -l "$machine/$point" || keep=yes
        fi
    done
    # A folder with something of the host still mounted in it is never removed.
    if [[ $keep = no ]] && ! grep -qF " $machine/" /proc/mounts; then
        rm -rf --one-file-system -- "$machine"
    fi
}
trap clean_up EXIT
trap 'exit 1' INT TERM

if [[ ! -e $machine/etc/debian_version ]]; then
    debootstrap --variant=minbase "$suite" "$machine" "$mirror"
fi

# The way to the packages is the host's.
cp /etc/resolv.conf /etc/hosts "$machine/etc/"
if [[ -e /etc/apt/apt.conf ]]; then
    cp /etc/apt/apt.conf "$machine/etc/apt/"
fi
while read -r file; do
    cp "$file" "$machine/etc/apt/apt.conf.d/"
done < <(grep -lisE 'proxy|check-valid-until' /etc/apt/apt.conf.d/* || true)

# Device nodes of its own, so that nothing the machine does reaches the host's /dev.
mount -t proc proc "$machine/proc"
mount -t sysfs -o ro sysfs "$machine/sys"
mount -t tmpfs -o mode=755 tmpfs "$machine/dev"
mkdir "$machine/dev/pts" "$machine/dev/shm"
mount -t devpts -o newinstance,ptmxmode=0666 devpts "$machine/dev/pts"
mount -t tmpfs -o mode=1777 tmpfs "$machine/dev/shm"
for node in null:3 zero:5 full:7 random:8 urandom:9; do
    mknod -m 666 "$machine/dev/${node%:*}" c 1 "${node#*:}"
done
mknod -m 666 "$machine/dev/tty" c 5 0
ln -s pts/ptmx "$machine/dev/ptmx"
ln -s /proc/self/fd "$machine/dev/fd"
ln -s /proc/self/fd/0 "$machine/dev/stdin"
ln -s /proc/self/fd/1 "$machine/dev/stdout"
ln -s /proc/self/fd/2 "$machine/dev/stderr"

rm -rf "$machine/root/tavor"
git clone -q --no-hardlinks "$source" "$machine/root/tavor"
git -C "$machine/root/tavor" remote remove origin

chroot "$machine" /usr/bin/env -i HOME=/root LANG=C.UTF-8 TERM="${TERM:-dumb}" \
    PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
    /bin/sh -c "cd /root/tavor && $command"
