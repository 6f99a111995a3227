#!/bin/bash
# SPDX-License-Identifier: MIT
#
# Builds the Debian packages and tries them on a machine with nothing but the base system. As
# root, with debootstrap:
#
#   tools/dev/check-packages.sh [-d folder] [-k]
#
#   -d  where to make the machine; one that is there already is used as it is
#   -k  keep the folder
#
# There they are installed, used and removed again, and nothing of them may be left.
set -euo pipefail

root=$(dirname -- "$(readlink -f -- "$0")")
root=$(dirname -- "$(dirname -- "$root")")
machine=
keep=()

while getopts d:k option; do
    case $option in
    d) machine=$OPTARG ;;
    k) keep=(-k) ;;
    *)
        echo "usage: ${0##*/} [-d folder] [-k]" >&2
        exit 2
        ;;
    esac
done

. "$root/tools/dev/bootstrap.sh"
install_needs "$RUN_NEEDS
command:dpkg-shlibdeps dpkg-dev
command:file file
command:debootstrap debootstrap
command:lowdown lowdown
header:CLI/CLI.hpp libcli11-dev
header:nlohmann/json.hpp nlohmann-json3-dev"

rm -rf "$root/build/package/packages"
configure package
build package
(cd "$root" && quietly build/package/cpack.log cpack --preset package)

[[ -n $machine ]] || machine=$(mktemp -d)
rm -rf "$machine/root/packages"
mkdir -p "$machine/root/packages"
cp "$root"/build/package/packages/*.deb "$machine/root/packages/"
cat >"$machine/root/packages/check.sh" <<'INSIDE'
set -eu
export DEBIAN_FRONTEND=noninteractive

say() {
    printf '== %s\n' "$*"
}

apt() {
    apt-get -qq -o Dpkg::Use-Pty=0 "$@" >/tmp/apt.log 2>&1 || { cat /tmp/apt.log; exit 1; }
}

# All files but those that the package manager keeps its books in.
snapshot() {
    find / -xdev \( -path /proc -o -path /sys -o -path /dev -o -path /tmp -o -path /root \
        -o -path /run -o -path /var/lib/dpkg -o -path /var/lib/apt -o -path /var/cache \
        -o -path /var/log \) -prune -o -print | sort
}

cd /root/packages
apt update
apt install --no-install-recommends man-db
snapshot >/tmp/before

say "tavor alone needs: $(dpkg-deb -f tavor_*.deb Depends)"
apt install --no-install-recommends ./tavor_*.deb
status=0
tavor -h 2>/tmp/complaint || status=$?
grep -q 'libkel.so: cannot open' /tmp/complaint
echo "without a libkel: exit status $status: $(cat /tmp/complaint)"

apt install --no-install-recommends ./*.deb
dpkg-query -W -f '${Package} ${Version} ${Architecture} ${Installed-Size} KiB\n' \
    tavor tavor-tools tavor-dev libkel-reference
if ldconfig -p | grep libkel; then
    echo "the reference library is where the loader looks"
    exit 1
fi
folder=$(dirname "$(dpkg -L libkel-reference | grep '/libkel\.so$')")

say 'tavor -h'
LD_LIBRARY_PATH=$folder tavor -h

say 'manual pages'
for page in $(dpkg -L tavor tavor-tools libkel-reference | sed -n 's|.*/man/man\(.\)/\(.*\)\.\1\.gz|\2|p'); do
    man "$page" 2>&1 | col -b | sed -n '4p;5p' | grep -F "$page"
done

say 'completion'
bash -c '. /usr/share/bash-completion/completions/tavor
    COMP_WORDS=(tavor kel_reg_); COMP_CWORD=1; _tavor; echo "${COMPREPLY[*]}"' |
    grep -x 'kel_reg_client kel_reg_tag'

say 'all cases with the reference library'
tavor-reference >/tmp/run
tail -n 5 /tmp/run
grep -qx Congratulations! /tmp/run
echo "PASS $(grep -cE '(^| )PASS$' /tmp/run), IGNORE $(grep -cE '(^| )IGNORE$' /tmp/run)"
grep -q "tests run: *$(grep -c '^TEST(' /usr/share/tavor/test_list.def)$" /tmp/run

if command -v tavor-run >/dev/null; then
    say 'tavor-run'
    tavor-run run --lib "$folder" kel_tlv | tail -n 3
    KEL_REFERENCE_FAULTS=register_client#1+:accepts_null \
        tavor-run run --lib "$folder" kel_reg_client >/tmp/calls || test $? -eq 1
    grep 'last library calls' /tmp/calls
fi

say 'kel-campaign'
kel-campaign --tavor "$(command -v tavor)" --library-path "$folder" \
    --pairs /usr/share/tavor/pairs --results /tmp/campaign --quiet kel_reg_tag |
    tail -n 1

say 'removal'
dpkg -L tavor tavor-tools tavor-dev libkel-reference | grep -E 'tavor|kel' | sort -u >/tmp/files
apt purge tavor tavor-tools tavor-dev libkel-reference
apt autoremove --purge
while read -r file; do
    if test -e "$file"; then
        echo "left: $file"
        exit 1
    fi
done </tmp/files
snapshot >/tmp/after
diff /tmp/before /tmp/after
echo "nothing is left of $(wc -l </tmp/files) files and folders"
INSIDE

"$root/tools/dev/check-bare-machine.sh" -d "$machine" "${keep[@]}" 'sh /root/packages/check.sh'
