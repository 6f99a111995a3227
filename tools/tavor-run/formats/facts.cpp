// SPDX-License-Identifier: MIT
#include "tools/tavor-run/formats/facts.h"

#include <algorithm>
#include <cstdio>

namespace tavor_run {

explain::place place_of(const case_result &what)
{
    return what.state == verdict::fail ? explain::place_of_check(what.name, what.message)
                                       : explain::place_of_case(what.name);
}

std::string text_of(const explain::place &where)
{
    return where.file.empty() ? "" : where.file + ":" + std::to_string(where.line);
}

std::vector<text_section> sections_of(const case_result &what)
{
    std::vector<text_section> sections;
    if (!what.calls.empty()) {
        sections.push_back({"last library calls (" + what.calls_from + ")", what.calls});
    }
    if (!what.backtrace.empty()) {
        sections.push_back({"backtrace (gdb, a second run of this case alone)", what.backtrace});
    }
    if (!what.left.empty()) {
        sections.push_back({"not released", what.left});
    }
    return sections;
}

std::string seconds_text(std::chrono::microseconds duration, int digits)
{
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.*f", digits,
                  std::chrono::duration<double>(duration).count());
    return text.data();
}

std::chrono::microseconds total_time(const std::vector<case_result> &results)
{
    std::chrono::microseconds total{0};
    for (const case_result &each : results) {
        total += each.duration;
    }
    return total;
}

std::vector<const case_result *> slowest(const std::vector<case_result> &results)
{
    constexpr std::size_t SHOWN = 10;
    constexpr std::chrono::milliseconds WORTH_A_LINE{1};
    std::vector<const case_result *> found;
    for (const case_result &each : results) {
        if (each.duration >= WORTH_A_LINE) found.push_back(&each);
    }
    const auto end = found.begin() + static_cast<std::ptrdiff_t>(std::min(found.size(), SHOWN));
    std::partial_sort(found.begin(), end, found.end(), [](const auto *one, const auto *other) {
        return one->duration > other->duration;
    });
    found.erase(end, found.end());
    return found;
}

} // namespace tavor_run
