# SPDX-License-Identifier: MIT
#
# A page of all cases, from the list and the suites' sources:
# awk -v total=0 -f make_catalogue.awk test_list.def header.h... suite.cpp...
# Each case with its number, its place, the operations that it names, and the texts that it fails with;
# those of functions that it calls are its own. They are defined before it, in its file or in a header.
function add(list, text, separator) {
    return list == "" ? text : list separator text
}

function take_messages(line, text) {
    while (match(line, /"([^"\\]|\\.)*"/)) {
        text = substr(line, RSTART + 1, RLENGTH - 2)
        line = substr(line, RSTART + RLENGTH)
        if (text ~ /[a-z] [a-z=!<>0-9]/ && text !~ /%/ && !(current SUBSEP text in said)) {
            said[current, text] = 1
            gsub(/\\"/, "\"", text)
            gsub(/\|/, "\\|", text)
            messages[current] = add(messages[current], text, "; ")
        }
    }
}

# What a function of the sources has, becomes the caller's.
function take_function(name, list, i, count) {
    count = split(operations[name], list, ", ")
    for (i = 1; i <= count; i++) {
        if (!(current SUBSEP list[i] in called)) {
            called[current, list[i]] = 1
            operations[current] = add(operations[current], list[i], ", ")
        }
    }
    count = split(messages[name], list, "; ")
    for (i = 1; i <= count; i++) {
        if (!(current SUBSEP list[i] in said)) {
            said[current, list[i]] = 1
            messages[current] = add(messages[current], list[i], "; ")
        }
    }
}

function take_functions(line, name) {
    gsub(/"([^"\\]|\\.)*"/, "", line)
    while (match(line, /[a-z_0-9]+/)) {
        name = substr(line, RSTART, RLENGTH)
        line = substr(line, RSTART + RLENGTH)
        if (name in is_function && name != current) take_function(name)
    }
}

function take_operations(line, name) {
    gsub(/"([^"\\]|\\.)*"/, "", line)
    while (match(line, /kel_[a-z_0-9]+(\(|,|\))/)) {
        name = substr(line, RSTART, RLENGTH - 1)
        line = substr(line, RSTART + RLENGTH - 1)
        name = "`" name "`"
        if (name !~ /_t`$/ && !(current SUBSEP name in called)) {
            called[current, name] = 1
            operations[current] = add(operations[current], name, ", ")
        }
    }
}

FNR == 1 {
    parts_of_name = split(FILENAME, path, "/")
    file = path[parts_of_name]
    current = ""
}

file == "test_list.def" && match($0, /^TEST\(/) {
    words = substr($0, RLENGTH + 1)
    sub(/\).*/, "", words)
    split(words, parts, ", ")
    suites[total] = parts[1]
    names[total] = parts[1] "_" parts[2]
    total++
}

file == "test_list.def" { next }

match($0, /^(TEST_)?CASE\(kel_[a-z_]+, [a-z0-9_]+/) {
    words = substr($0, RSTART, RLENGTH)
    sub(/.*\(/, "", words)
    sub(/, /, "_", words)
    current = words
    place[current] = "suites/" file ":" FNR
    has_body = 0
}

# A function, or a table of texts.
current == "" && match($0, /^[a-z].*[ *&]([a-z_0-9]+)\(/) && $0 !~ /;$/ {
    words = substr($0, RSTART, RLENGTH - 1)
    sub(/\(.*/, "", words)
    sub(/.*[ *&]/, "", words)
    current = words
    is_function[current] = 1
    has_body = 0
}

current != "" {
    take_messages($0)
    line = $0
    sub(/^(TEST_)?CASE\([^,]*, [^,]*,/, "", line)
    take_operations(line)
    take_functions(line)
}

/^\{/ { has_body = 1 }

# Without a body of its own a case ends with its last parenthesis.
/^\}/ || (!has_body && /^(CASE.*| .*)\)\)$/) { current = "" }

END {
    print "# Cases\n"
    print "Made from the sources: the number that `tavor -g` shows, where the case is, the operations that it"
    print "names, and the texts that it fails with. Errors of the library that it passes on are left out, and"
    print "so is what all cases of a kind begin and end with."
    for (i = 0; i < total; i++) {
        if (i == 0 || suites[i] != suites[i - 1]) {
            print "\n## " suites[i] (again[suites[i]]++ ? ", continued" : "")
            print "\n| Number | Case | Where | Calls | Fails with |\n|---|---|---|---|---|"
        }
        print "| " i " | `" names[i] "` | " place[names[i]] " | " operations[names[i]] " | " \
            messages[names[i]] " |"
    }
}
