# SPDX-License-Identifier: MIT
#
# A page of all cases, from the list and the suites' sources:
# awk -v total=0 -f make_catalogue.awk test_list.def operations.def header.h... suite.cpp...
# Each case with its number, its place, a sentence, and the texts that it fails with; the sentence is made
# from its name, the operations and errors that it names, and these texts. What functions have that it
# calls is its own. They are defined before it, in its file or in a header.
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
    count = split(errors[name], list, ", ")
    for (i = 1; i <= count; i++) {
        if (!(current SUBSEP list[i] in expected)) {
            expected[current, list[i]] = 1
            errors[current] = add(errors[current], list[i], ", ")
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

# Errors that it expects of the library.
function take_errors(line, name) {
    while (match(line, /[( ]E[A-Z][A-Z][A-Z]+[,;)]/)) {
        name = "`" substr(line, RSTART + 1, RLENGTH - 2) "`"
        line = substr(line, RSTART + RLENGTH - 1)
        if (name != "`ELEMENTS`" && !(current SUBSEP name in expected)) {
            expected[current, name] = 1
            errors[current] = add(errors[current], name, ", ")
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
        if (name in is_operation && !(current SUBSEP name in called)) {
            called[current, name] = 1
            operations[current] = add(operations[current], name, ", ")
        }
    }
}

# The words of a case's name.
function title(name, suite, words, count, i, text) {
    count = split(substr(name, length(suite) + 2), words, "_")
    for (i = 1; i <= count; i++) {
        text = add(text, words[i] in whole ? whole[words[i]] : words[i], " ")
    }
    return toupper(substr(text, 1, 1)) substr(text, 2)
}

# "a, b and c"
function enumerated(list, words, count, i, text) {
    count = split(list, words, ", ")
    for (i = 1; i <= count && i < MOST; i++) {
        text = add(text, words[i], i == count ? " and " : ", ")
    }
    return count < MOST ? text : text " and " (count - MOST + 1) " more"
}

# What a text says was not as it should be; empty where it is the call itself.
function subject(text) {
    if (text ~ /(wrong error|failed|success|succeed)/ && text !~ /(verif|verfi)/) return ""
    if (text ~ /verif|verfi/) return "the data"
    if (sub(/.*(wrong|incorrect) /, "", text)) return "the " text
    if (sub(/ mismatch.*/, "", text)) return "the " text
    if (match(text, / (==|!=|<|>|>=|<=) /)) return "`" text "` would be wrong"
    return ""
}

# What the case wants, from the texts that it fails with.
function sentence(i, list, count, each, what, right, wrong, refuses, works, name, error, text) {
    name = names[i]
    error = errors[name] == "" ? "" : enumerated(errors[name])
    count = split(messages[name], list, "; ")
    for (each = 1; each <= count; each++) {
        if (list[each] ~ /success|succeed/) refuses = 1
        if (list[each] ~ /failed/) works = 1
        what = subject(list[each])
        if (what ~ /^the / && index(", " right ",", ", " what ",") == 0) right = add(right, what, ", ")
        if (what != "" && what !~ /^the /) wrong = add(wrong, what, "; ")
    }
    refuses = refuses && !works || name ~ /_(null|bad|bogus|invalid|too_?big)(_|$)/ && error != ""
    if (name in declines) return title(name, suites[i]) ": always declines."
    text = title(name, suites[i]) ": " (operations[name] == "" ? "its calls" : enumerated(operations[name]))
    if (refuses && right == "" && wrong == "") {
        return text " must be refused" (error == "" ? "" : ", with " error) "."
    }
    text = text " must do what the contract says" (error == "" ? "" : ", and refuse with " error)
    text = add(text, right == "" ? "" : enumerated(right) " must be right", right == "" ? "" : "; ")
    return add(text, wrong, wrong == "" ? "" : "; ") "."
}

BEGIN {
    MOST = 8 # of what is enumerated
    count = split("pkt packet pkts packets buf buffer bufs buffers hdr header pkthdr packet_header cli client " \
        "len length dup duplicate dptr data_pointer off offset bigoff big_offset negoff negative_offset " \
        "neg negative cont contiguous newbuf new_buffer bufgrp buffer_group bufgroup buffer_group iov " \
        "pieces paddr physical_address addr address num number reg registration dereg deregistration " \
        "unregis deregistration sig signal mem memory alloc allocate vrf VRF id ID vlan VLAN tlv TLV " \
        "ifid interface_ID max maximum min minimum info information multi many bufcount buffer_count " \
        "bufchain chain thresh threshold param parameter params parameters mod modified dyn dynamic", pair, " ")
    for (i = 1; i < count; i += 2) {
        whole[pair[i]] = pair[i + 1]
        gsub(/_/, " ", whole[pair[i]])
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

file == "operations.def" && /^OPERATION\(/ && match($0, /kel_[a-z_0-9]+/) {
    is_operation["`" substr($0, RSTART, RLENGTH) "`"] = 1
}

file ~ /\.def$/ { next }

match($0, /^(TEST_)?CASE\(kel_[a-z_]+, [a-z0-9_]+/) {
    words = substr($0, RSTART, RLENGTH)
    sub(/.*\(/, "", words)
    sub(/, /, "_", words)
    current = words
    place[current] = "suites/" file ":" FNR
    has_body = 0
    if (/skip_case\(\)\)$/) declines[current] = 1
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
    take_errors(line)
    take_functions(line)
}

/^\{/ { has_body = 1 }

# Without a body of its own a case ends with its last parenthesis.
/^\}/ || (!has_body && /^(CASE.*| .*)\)\)$/) { current = "" }

END {
    print "# Cases\n"
    print "Made from the sources: the number that `tavor -g` shows, what the case checks, where it is, and the"
    print "texts that it fails with. The sentence has the words of its name, the operations that it calls, and"
    print "what they must do. Errors of the library that it passes on are left out, and so is what all cases"
    print "of a kind begin and end with."
    for (i = 0; i < total; i++) {
        if (i == 0 || suites[i] != suites[i - 1]) {
            print "\n## " suites[i] (again[suites[i]]++ ? ", continued" : "")
            print "\n| Number | Case | Checks | Where | Fails with |\n|---|---|---|---|---|"
        }
        print "| " i " | `" names[i] "` | " sentence(i) " | " place[names[i]] " | " \
            messages[names[i]] " |"
    }
}
