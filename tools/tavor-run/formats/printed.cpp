// SPDX-License-Identifier: MIT
#include "tools/tavor-run/formats/printed.h"

#include "tools/common/printable.h"

namespace tavor_run {

namespace {

constexpr std::size_t SHOWN_AT_EACH_END = 50;
constexpr std::size_t LONGEST_LINE = 500;

std::vector<std::string_view> split(std::string_view text)
{
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        lines.push_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

std::string shown(std::string_view line)
{
    std::string text = tools::printable(line.substr(0, LONGEST_LINE), "\t");
    if (line.size() > LONGEST_LINE) {
        text += " [" + std::to_string(line.size() - LONGEST_LINE) + " bytes left out]";
    }
    return text;
}

} // namespace

std::vector<std::string> printed_lines(std::string_view output)
{
    const std::vector<std::string_view> all = split(output);
    std::vector<std::string> lines;
    for (std::size_t i = 0; i < all.size(); i++) {
        const std::size_t surplus = all.size() - std::min(all.size(), 2 * SHOWN_AT_EACH_END);
        if (surplus > 1 && i == SHOWN_AT_EACH_END) {
            lines.push_back("[" + std::to_string(surplus) + " lines left out]");
            i += surplus;
        }
        lines.push_back(shown(all[i]));
    }
    return lines;
}

} // namespace tavor_run
