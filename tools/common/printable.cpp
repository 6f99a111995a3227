// SPDX-License-Identifier: MIT
#include "tools/common/printable.h"

namespace tools {

namespace {

// The length of the UTF-8 sequence of a printable character at the start of the text; 0 for none.
std::size_t printable_length(std::string_view text)
{
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned first = byte(0);
    if (first < 0x80) {
        return first >= 0x20 && first != 0x7f ? 1 : 0;
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
    const bool control = code < 0xa0;
    const bool forbidden =
        (code >= 0xd800 && code <= 0xdfff) || code == 0xfffe || code == 0xffff || code > 0x10ffff;
    return too_long || control || forbidden ? 0 : length;
}

} // namespace

std::string printable(std::string_view text, std::string_view kept)
{
    static constexpr std::string_view DIGITS = "0123456789abcdef";
    std::string result;
    while (!text.empty()) {
        const bool stays = kept.find(text[0]) != std::string_view::npos;
        const std::size_t length = stays ? 1 : printable_length(text);
        if (length == 0) {
            const auto byte = static_cast<unsigned char>(text[0]);
            result += "\\x";
            result += DIGITS[byte >> 4];
            result += DIGITS[byte & 15];
        }
        result += text.substr(0, length);
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return result;
}

} // namespace tools
