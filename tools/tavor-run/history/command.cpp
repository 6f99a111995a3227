// SPDX-License-Identifier: MIT
#include <algorithm>

#include "tools/common/output_file.h"
#include "tools/common/printable.h"
#include "tools/tavor-run/commands.h"
#include "tools/tavor-run/formats/format_table.h"
#include "tools/tavor-run/formats/outputs.h"
#include "tools/tavor-run/history/history.h"
#include "tools/tavor-run/run/selection.h"

namespace tavor_run {

namespace {

using maker = std::string (*)(const history &);

constexpr auto FORMATS = std::to_array<output_format<maker>>({
    {"text", [](const history &what) { return tools::printable(text_of(what), "\n"); }},
    {"html", html_of},
});

} // namespace

std::string history_formats()
{
    return names_in(FORMATS);
}

int history_command(const history_arguments &given)
{
    const history what = read_history(given.reports);
    std::vector<std::string> outputs = given.outputs;
    if (std::none_of(outputs.begin(), outputs.end(), goes_to_standard_output)) {
        outputs.emplace_back("text");
    }
    for (const std::string &each : outputs) {
        const report_target target = parse_target(each);
        tools::output_file(target.path).replace(format_named(FORMATS, target.format).make(what));
    }
    const auto counts = what.counts();
    const auto has = [&](trend which) { return counts[static_cast<std::size_t>(which)] > 0; };
    if (has(trend::lost)) return SOME_LOST;
    return has(trend::new_failure) || has(trend::flaky) || has(trend::known) ? SOME_FAILED
                                                                             : ALL_PASSED;
}

} // namespace tavor_run
