#!/bin/sh
# SPDX-License-Identifier: MIT
#
# An installed tree finds its own parts: installed.sh <cmake> <build folder>
set -eu
cmake=$1
build=$2
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
XDG_STATE_HOME=$tree/state
export XDG_STATE_HOME

for component in tavor tools reference dev; do
    "$cmake" --install "$build" --prefix "$tree/usr" --component "$component" >/dev/null
done
shim=$(find "$tree/usr" -name libkeltrace.so)
library=$(find "$tree/usr" -name libkel.so)
test -n "$shim"
test -n "$library"

# Whatever fails in memory fails early: tables of addresses are made before main, arrays on the stack
# have guards, libc's calls are checked.
for file in "$tree/usr/bin/tavor" "$tree/usr/bin/tavor-more" "$tree/usr/bin/tavor-run" "$tree/usr/bin/kel-campaign" "$shim"; do
    readelf -dW "$file" | grep -q 'Flags:.*NOW'
    symbols=$(readelf -sW --dyn-syms "$file")
    for needed in __stack_chk_fail 'printf_chk\|read_chk\|mem[a-z]*_chk'; do
        if ! printf '%s\n' "$symbols" | grep -q "$needed"; then
            echo "$file: no $needed"
            exit 1
        fi
    done
done

# The pages are there, and that of all cases.
test -s "$tree/usr/share/doc/tavor/tavor-run.md"
test -s "$tree/usr/share/doc/tavor/cases.md"

# Each program is completed by both shells, and tells its version; tavor's options are not ours.
for program in "$tree"/usr/bin/*; do
    name=${program##*/}
    if ! grep -q "complete -F.* $name\|^ .* $name\|^    $name" "$tree/usr/share/bash-completion/completions/$name" ||
        ! grep -rqE "^#compdef.* $name( |\$)" "$tree/usr/share/zsh"; then
        echo "$name: no completion"
        exit 1
    fi
    case $name in
    tavor | tavor-more | tavor-reference) ;;
    *) "$program" --version | grep -qE '^[0-9]+\.[0-9]+\.[0-9]+$' ;;
    esac
done

# The interface is found wherever the tree lies.
mv "$tree/usr" "$tree/moved"
pc=$(find "$tree/moved" -name kelapi.pc)
found=$(PKG_CONFIG_PATH=${pc%/*} pkg-config --cflags-only-I kelapi | sed 's/^-I//; s/ *$//')
test "$(realpath "$found")" = "$(realpath "$tree/moved/include")"
mv "$tree/moved" "$tree/usr"

# fails <what>: tavor-run with a library that is wrong shows the calls that led there.
fails() {
    status=0
    LD_LIBRARY_PATH='' KEL_REFERENCE_FAULTS=register_client#1+:accepts_null "$@" \
        --lib "${library%/*}" --trace 3 kel_reg_client >"$tree/run" || status=$?
    if test "$status" -ne 1 || ! grep -q 'last library calls' "$tree/run"; then
        echo "status $status, or no calls: $*"
        cat "$tree/run"
        exit 1
    fi
}

# From its folder, by a link from elsewhere, and with a tavor that lies elsewhere.
fails "$tree/usr/bin/tavor-run"
mkdir "$tree/bin" "$tree/elsewhere"
ln -s ../usr/bin/tavor-run "$tree/bin/tavor-run"
fails "$tree/bin/tavor-run"
cp "$tree/usr/bin/tavor" "$tree/elsewhere/"
fails "$tree/usr/bin/tavor-run" --tavor "$tree/elsewhere/tavor"

"$tree/usr/bin/kel-campaign" --tavor "$tree/usr/bin/tavor" --library-path "${library%/*}" \
    --pairs "$tree/usr/share/tavor/pairs" --quiet kel_reg_tag >"$tree/run"
tail -n 1 "$tree/run"
grep -q ' 0 to be looked at$' "$tree/run"

# Nothing is made up where nothing is.
mv "$shim" "$tree/elsewhere/"
LD_LIBRARY_PATH='' KEL_REFERENCE_FAULTS=register_client#1+:accepts_null "$tree/usr/bin/tavor-run" \
    --lib "${library%/*}" kel_reg_client >"$tree/run" && exit 1
grep -q ' fail ' "$tree/run"
if grep -q 'last library calls' "$tree/run"; then
    exit 1
fi
