#!/bin/sh
# SPDX-License-Identifier: MIT
#
# The examples of docs/writing-a-case.md compile: example.sh <compiler> <top folder>
set -eu
{
    printf '#include <errno.h>\n#include "suites/buf_case.h"\nTEST_FILE(kel_buf, append_self)\n'
    # shellcheck disable=SC2016 # a script of sed
    sed -n '/^```cpp$/,/^```$/{/^```/!p}' "$2/docs/writing-a-case.md"
} | "$1" -std=c++20 "-I$2" -Wall -Wextra -Werror -fsyntax-only -x c++ -
