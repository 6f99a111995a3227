# SPDX-License-Identifier: MIT
#
# The cases and the texts of the suites' sources, with their lines, as rows of a C++ table. Headers
# come first: macros that define cases stand there, too.
function row(kind, text) {
    gsub(/\\/, "\\\\", text)
    gsub(/"/, "\\\"", text)
    printf "%s(\"suites/%s\", %d, \"%s\")\n", kind, file, FNR, text
}

FNR == 1 { n = split(FILENAME, parts, "/"); file = parts[n]; macro = "" }

/^#define [A-Z_]+_CASE\(name/ { macro = $2; sub(/\(.*/, "", macro) }
macro != "" && match($0, /(CASE_STEPS|TEST_CASE)\(kel_[a-z_]+/) {
    suite = substr($0, RSTART, RLENGTH)
    sub(/.*\(/, "", suite)
    suite_of[macro] = suite
    macro = ""
    next
}
/^#define/ { next }

match($0, /^[A-Z_]+\([a-z0-9_]+(, [a-z0-9_]+)?/) {
    used = substr($0, 1, index($0, "(") - 1)
    words = substr($0, RSTART + length(used) + 1, RLENGTH - length(used) - 1)
    split(words, name, ", ")
    if (used == "CASE_STEPS" || used == "TEST_CASE") row("CHECKED_CASE", name[1] "_" name[2])
    else if (used in suite_of) row("CHECKED_CASE", suite_of[used] "_" name[1])
}

{
    rest = $0
    while (match(rest, /"([^"\\]|\\.)*"/)) {
        text = substr(rest, RSTART + 1, RLENGTH - 2)
        rest = substr(rest, RSTART + RLENGTH)
        if (text !~ /\\/ && $0 !~ /^#include/) row("CHECK_TEXT", text)
    }
}
