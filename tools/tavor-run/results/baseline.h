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

struct difference {
    std::string name{};
    std::string what{}; // "new failure", "fixed", ...
    std::optional<stored_result> before{};
    std::optional<stored_result> after{};
};

// What became of one case, empty for nothing. A case that was not to run is not compared.
std::string difference_between(const stored_result &before, const stored_result &after);

std::vector<difference> compare(const stored_run &before, const stored_run &after);

class baseline {
public:
    explicit baseline(const stored_run &run);

    // What to say of this result.
    std::string judge(const case_result &what) const;
    // Cases that the baseline has and that exist no more.
    std::vector<std::string> vanished() const;

private:
    std::map<std::string, stored_result> known;
};

} // namespace tavor_run
