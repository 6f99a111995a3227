// SPDX-License-Identifier: MIT
#include "tools/tavor-run/markup.h"

namespace tavor_run {

namespace {

constexpr std::string_view REPLACEMENT = "\xef\xbf\xbd";

// The length of the UTF-8 sequence of a character that XML allows; 0 for none.
std::size_t sequence_length(std::string_view text)
{
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned first = byte(0);
    if (first < 0x80) {
        const bool allowed = first >= 0x20 || first == '\t' || first == '\n' || first == '\r';
        return allowed ? 1 : 0;
    }
    const std::size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if (first < 0xc2 || first > 0xf4 || text.size() < length) {
        return 0;
    }
    unsigned code = first & (0x7fU >> length);
    for (std::size_t i = 1; i < length; i++) {
        if ((byte(i) & 0xc0U) != 0x80) {
            return 0;
        }
        code = code << 6 | (byte(i) & 0x3fU);
    }
    const bool too_long = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
    const bool forbidden =
        (code >= 0xd800 && code <= 0xdfff) || code == 0xfffe || code == 0xffff || code > 0x10ffff;
    return too_long || forbidden ? 0 : length;
}

constexpr std::string_view STYLE = R"(<style>
body { font-family: sans-serif; margin: 2em; color: #222; }
table { border-collapse: collapse; }
th, td { text-align: left; padding: 0.2em 0.8em; border-bottom: 1px solid #ddd;
         vertical-align: top; }
td.time { text-align: right; }
pre { white-space: pre-wrap; margin: 0.3em 0; }
.pass { color: #17692a; }
.ignore, .not_run { color: #777; }
.fail { color: #b3161b; font-weight: bold; }
.crash, .hang, .damaged, .unended, .unseen { color: #8a1a8a; font-weight: bold; }
</style>
)";

} // namespace

std::string html_head(std::string_view title)
{
    const std::string text = escaped(title);
    return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>" + text +
           "</title>\n" + std::string(STYLE) + "</head>\n<body>\n<h1>" + text + "</h1>\n";
}

std::string escaped(std::string_view text)
{
    std::string result;
    while (!text.empty()) {
        const std::size_t length = sequence_length(text);
        if (length == 0) {
            result += REPLACEMENT;
        } else if (text[0] == '&') {
            result += "&amp;";
        } else if (text[0] == '<') {
            result += "&lt;";
        } else if (text[0] == '>') {
            result += "&gt;";
        } else if (text[0] == '"') {
            result += "&quot;";
        } else {
            result += text.substr(0, length);
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return result;
}

} // namespace tavor_run
