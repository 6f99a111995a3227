# SPDX-License-Identifier: MIT
#
# The options in a help text, a line each: "name|argument|text". Read by the completions, which have
# it between single quotes.
function tell(    count, names, i) {
    count = split(heads, names, ",")
    for (i = 1; i <= count; i++) print names[i] "|" argument "|" text
    heads = ""
}

/^ +-/ {
    tell()
    sub(/^ +/, "")
    text = ""
    if (match($0, /  +/)) {
        text = substr($0, RSTART + RLENGTH)
        $0 = substr($0, 1, RSTART - 1)
    }
    heads = $1
    argument = $2 ~ /^(REQUIRED|.*:)$/ ? "" : $2
    gsub(/[{][a-z]*[}]/, "", heads)
    # Without the default and the check.
    sub(/=.*/, "", argument)
    sub(/:(INT|UINT|POSITIVE|[{]).*/, "", argument)
    next
}

heads != "" && /^          / {
    sub(/^ +/, "")
    text = text (text == "" ? "" : " ") $0
    next
}

{ tell() }
END { tell() }
