# SPDX-License-Identifier: MIT
#
# The commands of a page, one a line: those after "$ " in its blocks; in blocks without any the lines
# that begin with a program of this house. A command of several lines becomes one.
function take(line) {
    if (line ~ /\\$/) {
        sub(/ *\\$/, " ", line)
        begun = begun line
    } else if (line ~ /(&&|[{])$/) {
        begun = begun line " "
    } else if (begun ~ /[{] / && line != "}") {
        begun = begun line "; "
    } else {
        print begun line
        begun = ""
    }
}

function end_block(    i, line, words) {
    for (i = 1; i <= count; i++) {
        line = block[i]
        sub(/^ +/, "", line)
        if (begun != "") {
            take(line)
        } else if (has_prompts) {
            if (line ~ /^[$] /) take(substr(line, 3))
        } else if (line ~ /^[a-z]+\(\) [{]$/) {
            take(line)
        } else {
            sub(/   +[a-z].*$/, "", line) # the explanation beside it
            words = line
            while (match(words, /^(env |export )?[A-Z_]+=('[^']*'|"[^"]*"|[^ ]*) */)) {
                words = substr(words, RLENGTH + 1)
            }
            if (words ~ PROGRAM || (words == "" && line ~ /^export /) || words ~ /^\\$/) take(line)
        }
    }
    count = 0
    has_prompts = 0
}

BEGIN {
    PROGRAM = "^(tavor|tavor-run|tavor-more|tavor-reference|kel-[a-z-]+|packet|" \
        "[$a-z./]*/(bin|tavor)/[a-z-]+|bin/kel-[a-z-]+|bench/run|./run|./test|cmake|ctest|prove|grep|strings|echo|cd|mkdir|" \
        "parallel|pytest|sbatch|dmesg|[$]campaign|campaign=.*)( |$)"
}

/^## / { is_synopsis = /^## Synopsis/ }

/^```/ {
    end_block()
    is_fenced = !is_fenced
    language = is_fenced ? substr($0, 4) : ""
    next
}

is_synopsis { next }

is_fenced ? language ~ /^(sh|console)$/ : /^    / {
    block[++count] = $0
    if ($0 ~ /^ *[$] /) has_prompts = 1
    next
}

{ end_block() }
END { end_block() }
