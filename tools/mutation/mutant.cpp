// SPDX-License-Identifier: MIT
//
// Finding the places where a suite checks something. The sources are formatted and plain,
// so that looking at their text is enough.
#include "tools/mutation/mutant.h"

#include <algorithm>
#include <cctype>
#include <optional>

#include "tools/mutation/source_text.h"

namespace mutation {

namespace {

class source {
public:
    source(const std::string &name, const std::string &content)
        : file(name), text(content), is_code(code_map(content))
    {
    }

    std::vector<mutant> mutants()
    {
        for (std::size_t i = 0; i < text.size(); i++) {
            if (text[i] == '"') {
                literal_at(i);
                i = end_of_literal(i) - 1;
            } else if (is_code[i]) {
                check_at(i);
                comparison_at(i);
                number_at(i);
            }
        }
        return std::move(found);
    }

private:
    void add(const std::string &kind, std::size_t position, std::size_t length,
             const std::string &replacement)
    {
        const int line =
            1 + static_cast<int>(std::count(
                    text.begin(), text.begin() + static_cast<std::ptrdiff_t>(position), '\n'));
        found.push_back({file, line, kind, position, length, replacement});
    }

    bool word_at(std::size_t at, const std::string &word) const
    {
        const auto is_part = [&](std::size_t i) {
            return i < text.size() &&
                   (std::isalnum(static_cast<unsigned char>(text[i])) != 0 || text[i] == '_');
        };
        return text.compare(at, word.size(), word) == 0 && (at == 0 || !is_part(at - 1)) &&
               !is_part(at + word.size());
    }

    std::size_t end_of_literal(std::size_t at) const
    {
        std::size_t end = at + 1;
        while (end < text.size() && text[end] != '"') {
            end += text[end] == '\\' ? 2u : 1u;
        }
        return end + 1;
    }

    // The bracket that closes the one at `open`, or the top-level comma before it.
    std::optional<std::size_t> end_of_argument(std::size_t open, bool stop_at_comma) const
    {
        int depth = 0;
        for (std::size_t i = open; i < text.size(); i++) {
            if (!is_code[i]) {
                continue;
            }
            depth += text[i] == '(' || text[i] == '{';
            if (text[i] == ')' || text[i] == '}') {
                depth--;
                if (depth == 0) {
                    return i;
                }
            }
            if (stop_at_comma && depth == 1 && text[i] == ',') {
                return i;
            }
        }
        return std::nullopt;
    }

    void wrap_condition(std::size_t open, std::size_t end, bool holds_when_right)
    {
        const std::string condition = text.substr(open + 1, end - open - 1);
        // if (type name = call) tests what the call returned.
        const std::size_t assignment = condition.find(" = ");
        if (assignment != std::string::npos) {
            const std::string right = condition.substr(assignment + 3);
            const bool is_message = condition.starts_with("const char *");
            add("check dropped", open + 1 + assignment + 3, right.size(),
                "((" + right + "), " + (is_message ? "nullptr" : "uint32_t{}") + ")");
            return;
        }
        add("check dropped", open + 1, condition.size(),
            holds_when_right ? "true || (" + condition + ")" : "false && (" + condition + ")");
        add("check inverted", open + 1, condition.size(), "!(" + condition + ")");
    }

    // `if (...) { return ...` and CHECK_LOCATED(..., "...").
    void check_at(std::size_t at)
    {
        if (word_at(at, "CHECK_LOCATED")) {
            const std::size_t open = at + std::string("CHECK_LOCATED").size();
            if (const auto comma = end_of_argument(open, true)) {
                wrap_condition(open, *comma, true);
            }
        } else if (word_at(at, "if")) {
            const std::size_t open = text.find('(', at);
            const auto close = end_of_argument(open, false);
            if (close) {
                const std::size_t body = text.find_first_not_of(" \n{", *close + 1);
                if (word_at(body, "return")) {
                    wrap_condition(open, *close, false);
                }
            }
        }
    }

    std::string line_around(std::size_t at) const
    {
        const std::size_t start = at == 0 ? 0 : text.rfind('\n', at - 1) + 1;
        return text.substr(start, text.find('\n', at) - start);
    }

    // The bounds of loops are no checks.
    bool is_in_loop_head(std::size_t at) const
    {
        const std::string line = line_around(at);
        return line.find("for (") != std::string::npos || line.find("while (") != std::string::npos;
    }

    void comparison_at(std::size_t at)
    {
        if (is_in_loop_head(at)) {
            return;
        }
        for (const auto &[from, to] : {std::pair<std::string, std::string>{" == ", " != "},
                                       {" != ", " == "},
                                       {" < ", " <= "},
                                       {" > ", " >= "}}) {
            if (text.compare(at, from.size(), from) == 0) {
                add("comparison changed", at, from.size(), to);
            }
        }
    }

    // A number that something is compared with.
    void number_at(std::size_t at)
    {
        const auto is_word = [](char character) {
            return std::isalnum(static_cast<unsigned char>(character)) != 0 || character == '_' ||
                   character == '.';
        };
        if (std::isdigit(static_cast<unsigned char>(text[at])) == 0 || at < 4 ||
            is_word(text[at - 1]) || is_in_loop_head(at)) {
            return;
        }
        const std::string before = text.substr(at - 4, 4);
        if (!before.ends_with("== ") && !before.ends_with("!= ") && !before.ends_with(" > ") &&
            !before.ends_with(" < ") && !before.ends_with("<= ") && !before.ends_with(">= ")) {
            return;
        }
        std::size_t end = at;
        while (end < text.size() && is_word(text[end])) {
            end++;
        }
        add("number changed", at, end - at, "(" + text.substr(at, end - at) + " + 1)");
    }

    // A message. Names of clients, groups and tags mean nothing to a verdict.
    void literal_at(std::size_t at)
    {
        const std::string line = line_around(at);
        const std::size_t end = end_of_literal(at);
        const std::string literal = text.substr(at, end - at);
        const bool is_name = literal.starts_with("\"client") || literal.starts_with("\"test ") ||
                             line.find("kel_register_") != std::string::npos ||
                             line.find("kel_alloc_tag(") != std::string::npos;
        if (literal.size() > 2 && !line.starts_with("#") && !is_name) {
            add("text changed", end - 1, 0, "~");
        }
    }

    const std::string &file;
    const std::string &text;
    std::vector<bool> is_code;
    std::vector<mutant> found;
};

} // namespace

std::vector<mutant> mutants_of(const std::string &file, const std::string &text)
{
    return source(file, text).mutants();
}

std::string mutated(const std::string &text, const mutant &applied)
{
    std::string changed = text;
    return changed.replace(applied.position, applied.length, applied.replacement);
}

} // namespace mutation
