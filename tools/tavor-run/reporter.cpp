// SPDX-License-Identifier: MIT
#include "tools/tavor-run/writer.h"

namespace tavor_run {

void reporter::begin()
{
    for (const auto &each : writers) {
        each->begin(kept);
    }
}

void reporter::started(int row)
{
    for (const auto &each : writers) {
        each->started(kept, row);
    }
}

void reporter::result(case_result what)
{
    kept.results.push_back(std::move(what));
    for (const auto &each : writers) {
        each->result(kept, kept.results.back());
    }
}

void reporter::details(const case_result &what)
{
    for (const auto &each : writers) {
        each->details(kept, what);
    }
}

void reporter::note(const std::string &text)
{
    kept.notes.push_back(text);
    for (const auto &each : writers) {
        each->note(kept, text);
    }
}

void reporter::end()
{
    for (const auto &each : writers) {
        each->end(kept);
    }
}

} // namespace tavor_run
