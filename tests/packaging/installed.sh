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

for component in tavor tools reference; do
    "$cmake" --install "$build" --prefix "$tree/usr" --component "$component" >/dev/null
done
shim=$(find "$tree/usr" -name libkeltrace.so)
library=$(find "$tree/usr" -name libkel.so)
test -n "$shim"
test -n "$library"

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
