#!/bin/sh
# SPDX-License-Identifier: MIT
#
# What a packager types, without presets: plain.sh <source folder> <build folder> <target>...
# It must build with whatever warnings the compiler has. The build folder is kept: the next time
# there is little to do.
set -eu

source=$1
build=$2
shift 2

cmake -G Ninja -S "$source" -B "$build" -DCMAKE_BUILD_TYPE=Release -DTAVOR_TESTS=OFF

if grep -q -e -Werror "$build/compile_commands.json"; then
    echo "FAILED: warnings are errors in a plain build" >&2
    exit 1
fi

if grep -q -e -DNDEBUG "$build/compile_commands.json"; then
    echo "FAILED: a plain build is without assertions" >&2
    exit 1
fi

cmake --build "$build" --target "$@"
