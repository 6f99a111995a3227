// SPDX-License-Identifier: MIT
#include "tools/tavor-run/console/capture.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "tools/common/printable.h"
#include "tools/tavor-run/console/line_forms.h"
#include "tools/tavor_output/table.h"

namespace tavor_run {

namespace {

constexpr char ESCAPE = '\x1b';

// How much of a line a pattern sees: the library's matcher recurses with the length of the text.
constexpr std::size_t PATTERN_REACH = 1000;

bool is_digit(char character)
{
    return character >= '0' && character <= '9';
}

bool is_between(char character, char first, char last)
{
    return character >= first && character <= last;
}

// The length of the escape sequence that the text begins with; 0 when it is not whole.
std::size_t length_of_escape(std::string_view text)
{
    if (text.size() < 2) return 0;
    std::size_t at = 2;
    if (text[1] == ']') { // a command for the terminal, such as its title
        const std::size_t bell = text.find('\a');
        const std::size_t end = text.find("\x1b\\", at);
        return bell < end ? bell + 1 : end == std::string_view::npos ? 0 : end + 2;
    }
    if (text[1] == '[') {
        while (at < text.size() && is_between(text[at], '0', '?')) at++;
    } else {
        at = 1;
    }
    while (at < text.size() && is_between(text[at], ' ', '/')) at++;
    const char first_final = text[1] == '[' ? '@' : '0';
    return at < text.size() && is_between(text[at], first_final, '~') ? at + 1 : 0;
}

std::string utf8(unsigned code)
{
    const auto byte = [](unsigned value) { return static_cast<char>(value); };
    if (code < 0x80) return {byte(code)};
    if (code < 0x800) return {byte(0xc0 | code >> 6), byte(0x80 | (code & 0x3f))};
    if (code < 0x10000) {
        return {byte(0xe0 | code >> 12), byte(0x80 | (code >> 6 & 0x3f)),
                byte(0x80 | (code & 0x3f))};
    }
    return {byte(0xf0 | code >> 18), byte(0x80 | (code >> 12 & 0x3f)),
            byte(0x80 | (code >> 6 & 0x3f)), byte(0x80 | (code & 0x3f))};
}

// A scalar of YAML in double quotes, at the start of the text; none when it is not whole.
std::optional<std::string> quoted_scalar(std::string_view text)
{
    constexpr std::string_view LETTERS = "0abtnvfre";
    constexpr std::string_view MEANINGS("\0\a\b\t\n\v\f\r\x1b", 9);
    constexpr std::string_view HEX_LETTERS = "xuU";
    if (!text.starts_with('"')) return std::nullopt;
    std::string result;
    for (std::size_t at = 1; at < text.size(); at++) {
        if (text[at] == '"') return result;
        if (text[at] != '\\') {
            result += text[at];
            continue;
        }
        if (++at == text.size()) break;
        if (const auto letter = LETTERS.find(text[at]); letter != std::string_view::npos) {
            result += MEANINGS[letter];
        } else if (const auto kind = HEX_LETTERS.find(text[at]); kind != std::string_view::npos) {
            const std::size_t digits = std::size_t{2} << kind;
            const std::string_view number = text.substr(at + 1, digits);
            unsigned code = 0;
            std::from_chars(number.data(), number.data() + number.size(), code, 16);
            result += utf8(code);
            at += digits;
        } else {
            result += text[at]; // a quote, a backslash, a slash
        }
    }
    return std::nullopt;
}

// The scalar after a key of a line of LAVA's log.
std::optional<std::string> value_of(std::string_view line, std::string_view key)
{
    const std::size_t at = line.find(key);
    return at == std::string_view::npos ? std::nullopt
                                        : quoted_scalar(line.substr(at + key.size()));
}

// The length of "[Mon Jan 25 14:46:56 PST 1999]", as conserver writes it; 0 for none.
std::size_t length_of_conserver_stamp(std::string_view line)
{
    static const std::regex STAMP(
        R"(\[[A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9][0-9] [0-9:]{8} (?:[A-Z0-9+-]+ )?[0-9]{4}\])");
    std::cmatch found;
    const std::string_view start = line.substr(0, 64);
    const bool is_one = start.starts_with('[') &&
                        std::regex_search(start.data(), start.data() + start.size(), found, STAMP,
                                          std::regex_constants::match_continuous);
    return is_one ? static_cast<std::size_t>(found.length()) : 0;
}

bool is_conserver_mark(std::string_view line)
{
    return line.starts_with("[-- ") && line.ends_with("]");
}

std::string_view without_line_end(std::string_view line)
{
    return line.substr(0, line.find_last_not_of(" \t\r\n") + 1);
}

// The length of the text's beginning that is this prefix; a number in brackets, such as a
// process's, may be another one.
std::optional<std::size_t> length_of_prefix(std::string_view text, std::string_view prefix)
{
    std::size_t at = 0;
    for (std::size_t i = 0; i < prefix.size(); i++) {
        if (at == text.size() || text[at] != prefix[i]) return std::nullopt;
        at++;
        if (prefix[i] != '[') continue;
        const std::size_t end = prefix.find_first_not_of("0123456789", i + 1);
        const std::size_t own_end = text.find_first_not_of("0123456789", at);
        if (end == std::string_view::npos || end == i + 1 || prefix[end] != ']') continue;
        if (own_end == std::string_view::npos || own_end == at) return std::nullopt;
        i = end - 1;
        at = own_end;
    }
    return at;
}

// What stands in front of tavor's lines: a text, a time stamp, a text.
struct line_lead {
    std::string before{};
    stamp_style style = stamp_style::none;
    std::string after{};

    bool empty() const { return before.empty() && after.empty(); }
    std::string text() const { return before + after; }
};

using tavor_output::HEADER;

// Of a line that ends with tavor's header.
std::optional<line_lead> lead_of_header(std::string_view line)
{
    line = without_line_end(line);
    if (!line.ends_with(HEADER)) return std::nullopt;
    const std::string_view lead = line.substr(0, line.size() - HEADER.size());
    for (std::size_t at = 0; at < lead.size(); at++) {
        if (at > 0 && is_digit(lead[at - 1])) continue; // in the middle of a number
        const stamped_line parts = split_stamp(line.substr(at));
        if (parts.style == stamp_style::none || parts.rest.size() < HEADER.size()) continue;
        return line_lead{std::string(lead.substr(0, at)), parts.style,
                         std::string(parts.rest.substr(0, parts.rest.size() - HEADER.size()))};
    }
    return line_lead{std::string(lead), stamp_style::none, ""};
}

// The line without its lead, its time stamp left; none when it does not bear the lead.
std::optional<std::string> without_lead(std::string_view line, const line_lead &lead)
{
    const auto before = length_of_prefix(line, lead.before);
    if (!before) return std::nullopt;
    const std::string_view rest = line.substr(*before);
    const stamped_line parts =
        lead.style == stamp_style::none ? stamped_line{stamp_style::none, rest} : split_stamp(rest);
    const auto after = length_of_prefix(parts.rest, lead.after);
    if (parts.style != lead.style || !after) return std::nullopt;
    return std::string(rest.substr(0, rest.size() - parts.rest.size())) +
           std::string(parts.rest.substr(*after));
}

std::string made_plain(std::string_view captured, const std::vector<std::regex> &strip)
{
    std::string line;
    if (!take_lava_line(captured, line)) line = captured;
    line = without_escapes(line);
    for (const std::regex &pattern : strip) {
        std::smatch found;
        const auto end =
            line.begin() + static_cast<std::ptrdiff_t>(std::min(line.size(), PATTERN_REACH));
        if (std::regex_search(line.cbegin(), std::string::const_iterator(end), found, pattern,
                              std::regex_constants::match_continuous)) {
            line.erase(0, static_cast<std::size_t>(found.length()));
        }
    }
    line.erase(0, length_of_conserver_stamp(line));
    return is_conserver_mark(without_line_end(line)) ? "" : line;
}

// The leads of all headers, each of them once; that of the first one comes first, unless a header
// has none.
std::vector<line_lead> leads_in(const std::vector<std::string> &lines)
{
    std::vector<line_lead> leads;
    for (const std::string &line : lines) {
        const auto lead = lead_of_header(line);
        if (!lead) continue;
        const bool is_known = std::any_of(leads.begin(), leads.end(), [&](const line_lead &each) {
            return length_of_prefix(lead->text(), each.text()) == lead->text().size();
        });
        if (!is_known) leads.push_back(*lead);
    }
    std::stable_partition(leads.begin(), leads.end(),
                          [](const line_lead &each) { return each.empty(); });
    return leads;
}

// Where a line bears no lead it stays: it may be tavor's, and damaged.
std::string own_line(const std::string &line, const std::vector<line_lead> &leads)
{
    if (leads.empty()) return line;
    const auto own = leads.front().empty() ? std::nullopt : without_lead(line, leads.front());
    if (own) return *own;
    const bool is_anothers =
        std::any_of(leads.begin() + 1, leads.end(),
                    [&](const line_lead &each) { return without_lead(line, each).has_value(); });
    return is_anothers ? "" : line;
}

} // namespace

std::string without_escapes(std::string_view line)
{
    std::string result;
    for (std::size_t at = line.find(ESCAPE); at != std::string_view::npos; at = line.find(ESCAPE)) {
        const std::size_t length = length_of_escape(line.substr(at));
        result += line.substr(0, length > 0 ? at : at + 1);
        line.remove_prefix(at + std::max<std::size_t>(length, 1));
    }
    return result += line;
}

bool take_lava_line(std::string_view line, std::string &message)
{
    if (line.starts_with("- ")) line.remove_prefix(2);
    if (!line.starts_with("{\"dt\": \"")) return false;
    const auto level = value_of(line, "\"lvl\": ");
    const auto text = value_of(line, "\"msg\": ");
    const bool is_from_device = level && (*level == "target" || *level == "feedback");
    message = is_from_device && text ? *text : "";
    message.erase(message.find_last_not_of('\n') + 1);
    return true;
}

plain_log make_plain(std::string_view captured, const std::vector<std::regex> &strip)
{
    std::vector<std::string> lines;
    while (!captured.empty()) {
        const std::size_t end = std::min(captured.find('\n'), captured.size());
        lines.push_back(made_plain(captured.substr(0, end), strip));
        if (end < captured.size()) lines.back() += '\n';
        captured.remove_prefix(std::min(end + 1, captured.size()));
    }
    const std::vector<line_lead> leads = leads_in(lines);
    plain_log plain;
    for (const std::string &line : lines) {
        const std::string own = own_line(line, leads);
        plain.text += own.empty() && line.ends_with('\n') ? "\n" : own;
    }
    for (std::size_t i = 1; i < leads.size(); i++) {
        plain.notes.push_back("the log is of several consoles: lines that begin with \"" +
                              tools::printable(leads[i].text()) +
                              "\" are left out; --strip chooses another one");
    }
    return plain;
}

} // namespace tavor_run
