# SPDX-License-Identifier: MIT
#
# The comment of each operation in the interface's headers, as rows of a C++ table.
FNR == 1 { n = split(FILENAME, parts, "/"); file = parts[n]; comment = "" }

/^\/\*/ { comment = ""; is_open = 1 }
is_open {
    line = $0
    sub(/\*\/.*/, "", line)
    sub(/^ *\/?\*+/, "", line)
    gsub(/^ +| +$/, "", line)
    if (line != "") comment = comment (comment == "" ? "" : " ") line
    if ($0 ~ /\*\//) is_open = 0
    next
}

/^KEL_API / && match($0, /kel_[a-z0-9_]+\(/) {
    text = comment
    gsub(/\\/, "\\\\", text)
    gsub(/"/, "\\\"", text)
    printf "CLAUSE(\"%s\", \"kelapi/%s\", \"%s\")\n", substr($0, RSTART, RLENGTH - 1), file, text
}
