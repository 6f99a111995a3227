// SPDX-License-Identifier: MIT
#include "tools/mutation/source_text.h"

#include <algorithm>

namespace mutation {

std::vector<bool> code_map(const std::string &text)
{
    std::vector<bool> is_code(text.size(), true);
    for (std::size_t i = 0; i < text.size(); i++) {
        std::size_t end = i;
        if (text.compare(i, 2, "//") == 0) {
            end = std::min(text.find('\n', i), text.size());
        } else if (text.compare(i, 2, "/*") == 0) {
            end = std::min(text.find("*/", i), text.size() - 2) + 2;
        } else if (text[i] == '"' || text[i] == '\'') {
            end = i + 1;
            while (end < text.size() && text[end] != text[i]) {
                end += text[end] == '\\' ? 2u : 1u;
            }
            end = std::min(end + 1, text.size());
        } else if (text[i] == '#' && (i == 0 || text[i - 1] == '\n')) {
            end = std::min(text.find('\n', i), text.size());
        } else {
            continue;
        }
        std::fill(is_code.begin() + static_cast<std::ptrdiff_t>(i),
                  is_code.begin() + static_cast<std::ptrdiff_t>(end), false);
        i = end - 1;
    }
    return is_code;
}

} // namespace mutation
