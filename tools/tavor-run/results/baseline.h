// SPDX-License-Identifier: MIT
//
// Two runs side by side: by name, verdict and message, line numbers left aside.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/tavor-run/results/results_file.h"

namespace tavor_run {

struct judgement {
    standing what = standing::same;
    std::string text{}; // "new failure", "fixed", ...; empty where nothing differs
};

// How one case compares. A case that was not to run is not compared.
judgement compare(const outcome &before, const outcome &after);

struct difference {
    std::string name{};
    std::string what{}; // a judgement's text, or "new case"
    std::optional<outcome> before{};
    std::optional<outcome> after{};
};

std::vector<difference> compare(const stored_run &before, const stored_run &after);

class baseline {
public:
    explicit baseline(const stored_run &run);

    // Tells the result how it compares.
    void judge(case_result &what) const;
    // Cases that the baseline has and that exist no more.
    std::vector<std::string> vanished() const;

private:
    std::map<std::string, outcome> known;
};

} // namespace tavor_run
