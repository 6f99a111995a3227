// SPDX-License-Identifier: MIT
#include "tools/mutation/explained.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <string_view>

#include "tools/campaign/columns.h"

namespace mutation {

std::vector<explanation> read_explanations(const std::string &path)
{
    std::ifstream stream(path);
    if (!stream) {
        throw std::runtime_error(path + ": cannot be read");
    }
    std::vector<explanation> known;
    for (const campaign::numbered_line &line : campaign::meaningful_lines(stream)) {
        const std::vector<std::string> columns = campaign::columns_of(line.text);
        if (columns.size() != 4) {
            throw std::runtime_error(path + ":" + std::to_string(line.number) +
                                     ": expected: file | kind | fragment | reason");
        }
        known.push_back({columns[0], columns[1], columns[2], columns[3]});
    }
    return known;
}

std::string explanation_of(const mutant &survivor, const std::string &text,
                           const std::vector<explanation> &known)
{
    const std::size_t before = text.rfind('\n', survivor.position);
    const std::size_t begin = before == std::string::npos ? 0 : before + 1;
    const std::size_t end = std::min(text.find('\n', survivor.position), text.size());
    const std::string_view line = std::string_view(text).substr(begin, end - begin);
    const auto found = std::find_if(known.begin(), known.end(), [&](const explanation &each) {
        return each.file == survivor.file && each.kind == survivor.kind &&
               line.find(each.fragment) != std::string_view::npos;
    });
    return found == known.end() ? "" : found->reason;
}

} // namespace mutation
