// SPDX-License-Identifier: MIT
#include "tools/explain/clauses.h"

#include <algorithm>
#include <array>

namespace explain {

namespace {

struct clause {
    std::string_view function;
    std::string_view header;
    std::string_view text;
};

constexpr auto CLAUSES = std::to_array<clause>({
#define CLAUSE(function, header, text) {function, header, text},
#include "tools/explain/clauses.def"
#undef CLAUSE
});

} // namespace

std::string clause_of(std::string_view function)
{
    const auto *const found = std::ranges::find(CLAUSES, function, &clause::function);
    if (found == CLAUSES.end()) return "";
    return std::string(found->header) + ": " + std::string(found->text);
}

} // namespace explain
