// SPDX-License-Identifier: MIT
//
// The sources are formatted, so that looking at their lines is enough.
#include "tools/mutation/code_change.h"

#include <algorithm>
#include <cctype>
#include <regex>
#include <string_view>
#include <utility>

#include "tools/mutation/source_text.h"

namespace mutation {

namespace {

struct exchange {
    const char *kind;
    const char *from;
    const char *to;
};

constexpr exchange EXCHANGES[] = {
    {"comparison", " < ", " <= "},    {"comparison", " <= ", " < "},
    {"comparison", " > ", " >= "},    {"comparison", " >= ", " > "},
    {"comparison", " == ", " != "},   {"comparison", " != ", " == "},
    {"arithmetic", " + ", " - "},     {"arithmetic", " - ", " + "},
    {"arithmetic", " * ", " + "},     {"arithmetic", " / ", " * "},
    {"arithmetic", " += ", " -= "},   {"arithmetic", " -= ", " += "},
    {"arithmetic", "++", "--"},       {"arithmetic", "--", "++"},
    {"logic", " && ", " || "},        {"logic", " || ", " && "},
    {"bits", " & ", " | "},           {"bits", " | ", " & "},
    {"constant", "EINVAL", "ENOENT"}, {"constant", "ENOENT", "EINVAL"},
    {"constant", "ENOMEM", "EINVAL"}, {"constant", "EAGAIN", "ENOMEM"},
    {"constant", "EEXIST", "EBUSY"},  {"constant", "true", "false"},
    {"constant", "false", "true"},
};

bool is_word(char each)
{
    return std::isalnum(static_cast<unsigned char>(each)) != 0 || each == '_';
}

class source {
public:
    source(const std::string &name, const std::string &content)
        : file_(name), text_(content), is_code_(code_map(content))
    {
    }

    std::vector<mutant> changes()
    {
        for (begin_ = 0; begin_ < text_.size(); begin_ = end_ + 1) {
            number_++;
            end_ = std::min(text_.find('\n', begin_), text_.size());
            if (is_statement_line()) look_at_line();
        }
        return std::move(found_);
    }

private:
    std::string_view line() const { return std::string_view(text_).substr(begin_, end_ - begin_); }

    // Of a function, or with a constant.
    bool is_statement_line() const
    {
        const std::size_t first = text_.find_first_not_of(' ', begin_);
        if (first >= end_ || !is_code_[first] || line().starts_with("static_assert")) return false;
        return first > begin_ || line().starts_with("constexpr ");
    }

    void look_at_line()
    {
        exchanges();
        numbers();
        condition();
        result();
        statement();
        arguments();
    }

    void add(const char *kind, std::size_t position, std::size_t length, std::string replacement)
    {
        found_.push_back({file_, number_, kind, position, length, std::move(replacement)});
    }

    void exchanges()
    {
        for (const auto &[kind, from, to] : EXCHANGES) {
            const std::string_view word = from;
            for (std::size_t at = text_.find(word, begin_); at < end_ && at + word.size() <= end_;
                 at = text_.find(word, at + 1)) {
                const bool is_part = is_word(word.front()) &&
                                     (is_word(text_[at - 1]) || is_word(text_[at + word.size()]));
                if (is_code_[at] && !is_part) add(kind, at, word.size(), to);
            }
        }
    }

    void numbers()
    {
        for (std::size_t at = begin_ + 1; at < end_; at++) {
            if (!is_code_[at] || std::isdigit(static_cast<unsigned char>(text_[at])) == 0) continue;
            std::size_t end = at;
            while (end < end_ && (is_word(text_[end]) || text_[end] == '\'')) end++;
            if (!is_word(text_[at - 1]) && text_[at - 1] != '.') {
                const std::string number = text_.substr(at, end - at);
                add("constant", at, end - at, "(" + number + " + 1)");
            }
            at = end;
        }
    }

    // The bracket that closes the one at `open`; npos: it is on another line.
    std::size_t closing(std::size_t open) const
    {
        int depth = 0;
        for (std::size_t at = open; at < end_; at++) {
            if (!is_code_[at]) continue;
            if (text_[at] == '(') depth++;
            if (text_[at] == ')' && --depth == 0) return at;
        }
        return std::string::npos;
    }

    void condition()
    {
        for (const std::string_view word : {"if (", "while ("}) {
            const std::size_t at = text_.find(word, begin_);
            if (at >= end_ || !is_code_[at] || is_word(text_[at - 1])) continue;
            const std::size_t open = at + word.size() - 1;
            const std::size_t close = closing(open);
            if (close == std::string::npos) continue;
            const std::size_t semicolon = text_.find(';', open);
            const std::size_t begin = semicolon < close ? semicolon + 2 : open + 1;
            const std::string whole = text_.substr(begin, close - begin);
            if (whole.find(" = ") == std::string::npos) {
                add("condition", begin, whole.size(), "!(" + whole + ")");
            }
        }
    }

    void result()
    {
        const std::size_t at = text_.find("return ", begin_);
        if (at >= end_ || !is_code_[at] || is_word(text_[at - 1])) return;
        const std::size_t begin = at + std::string_view("return ").size();
        const std::size_t end = text_.find(';', begin);
        if (end >= end_) return;
        const std::string given = text_.substr(begin, end - begin);
        const bool is_nothing = given == "0" || given == "nullptr" || given == "{}";
        // Others are exchanged as constants.
        if (!is_nothing && given != "true" && given != "false") {
            add("result", begin, given.size(), "{}");
        }
    }

    // One that stands on a line of its own, and is no declaration.
    void statement()
    {
        static const std::regex STATEMENT(
            R"( +(break|continue|return)?;| +[*a-zA-Z_][\w.:>\[\]*-]*(\(.*\)(->.*)?| [-+|&]?= .*|\+\+|--);)");
        const std::string whole(line());
        if (whole.find("return ") != std::string::npos) return;
        if (!std::regex_match(whole, STATEMENT)) return;
        const std::size_t first = text_.find_first_not_of(' ', begin_);
        add("statement", first, end_ - 1 - first, "");
    }

    void arguments()
    {
        for (std::size_t open = begin_ + 1; open < end_; open++) {
            if (text_[open] != '(' || !is_code_[open] || !is_word(text_[open - 1])) continue;
            const std::size_t close = closing(open);
            if (close == std::string::npos) continue;
            const auto all = pieces(open + 1, close);
            for (std::size_t i = 0; i + 1 < all.size(); i++) swap(all[i], all[i + 1]);
        }
    }

    using piece = std::pair<std::size_t, std::size_t>; // from, to

    std::vector<piece> pieces(std::size_t from, std::size_t to) const
    {
        std::vector<piece> all;
        int depth = 0;
        std::size_t begin = from;
        for (std::size_t at = from; at <= to; at++) {
            const char each = text_[at];
            if (at == to || (each == ',' && depth == 0)) {
                all.emplace_back(begin, at);
                begin = at + 2;
            } else if (each == '(' || each == '{' || each == '[' || each == '<') {
                depth++;
            } else if (each == ')' || each == '}' || each == ']' || each == '>') {
                depth--;
            }
        }
        return all;
    }

    void swap(const piece &one, const piece &other)
    {
        const std::string first = text_.substr(one.first, one.second - one.first);
        const std::string second = text_.substr(other.first, other.second - other.first);
        // What all operations get first has a type of its own.
        if (first == second || first == "library" || second == "library") return;
        std::string swapped = second;
        swapped += ", ";
        swapped += first;
        add("arguments", one.first, other.second - one.first, std::move(swapped));
    }

    const std::string &file_;
    const std::string &text_;
    std::vector<bool> is_code_;
    std::size_t begin_ = 0; // of the line
    std::size_t end_ = 0;
    int number_ = 0;
    std::vector<mutant> found_;
};

} // namespace

std::vector<mutant> code_changes_of(const std::string &file, const std::string &text)
{
    return source(file, text).changes();
}

} // namespace mutation
