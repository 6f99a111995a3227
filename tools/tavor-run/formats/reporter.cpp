// SPDX-License-Identifier: MIT
#include <algorithm>
#include <iostream>
#include <stdexcept>

#include "tools/common/printable.h"
#include "tools/tavor-run/formats/writer.h"

namespace tavor_run {

template <typename Told> void reporter::tell(Told told)
{
    for (std::size_t i = 0; i < writers.size(); i++) {
        try {
            told(*writers[i].which);
        } catch (const std::runtime_error &error) {
            drop(i--, error.what());
        }
    }
}

// The others go on; a report that was asked for is missed.
void reporter::drop(std::size_t place, const std::string &why)
{
    const bool was_asked_for = writers[place].is_asked_for;
    writers.erase(writers.begin() + static_cast<std::ptrdiff_t>(place));
    if (was_asked_for && std::none_of(writers.begin(), writers.end(),
                                      [](const auto &each) { return each.is_asked_for; })) {
        throw std::runtime_error(why);
    }
    std::cerr << "tavor-run: " << tools::printable(why) << "\n";
    if (was_asked_for) {
        trouble(why);
    }
}

void reporter::begin()
{
    tell([&](writer &each) { each.begin(kept); });
}

void reporter::started(int row)
{
    tell([&](writer &each) { each.started(kept, row); });
}

void reporter::result(case_result what)
{
    kept.results.push_back(std::move(what));
    tell([&](writer &each) { each.result(kept, kept.results.back()); });
}

void reporter::details(const case_result &what)
{
    tell([&](writer &each) { each.details(kept, what); });
}

void reporter::note(const std::string &text)
{
    kept.notes.push_back(text);
    tell([&](writer &each) { each.note(kept, text); });
}

void reporter::trouble(const std::string &text)
{
    kept.trouble(text);
    tell([&](writer &each) { each.note(kept, text); });
}

void reporter::end()
{
    tell([&](writer &each) { each.end(kept); });
}

} // namespace tavor_run
