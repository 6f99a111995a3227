# SPDX-License-Identifier: MIT
#
# The cases and the texts of the suites' sources, with their lines, as rows of a C++ table.
function row(kind, text) {
    gsub(/\\/, "\\\\", text)
    gsub(/"/, "\\\"", text)
    printf "%s(\"%s\", %d, \"%s\")\n", kind, file, FNR, text
}

FNR == 1 { n = split(FILENAME, parts, "/"); file = parts[n - 1] "/" parts[n] }

match($0, /^(TEST_)?CASE\(kel_[a-z_]+, [a-z0-9_]+/) {
    words = substr($0, RSTART, RLENGTH)
    sub(/.*\(/, "", words)
    sub(/, /, "_", words)
    row("CHECKED_CASE", words)
}

!/^#include/ {
    rest = $0
    while (match(rest, /"([^"\\]|\\.)*"/)) {
        text = substr(rest, RSTART + 1, RLENGTH - 2)
        rest = substr(rest, RSTART + RLENGTH)
        if (text !~ /\\/) row("CHECK_TEXT", text)
    }
}
