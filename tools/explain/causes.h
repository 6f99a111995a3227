// SPDX-License-Identifier: MIT
//
// Which earlier calls a wrong answer comes from, found on the reference library by leaving calls
// out.
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "tools/sequence/oracle.h"

namespace explain {

struct causes {
    // The calls that led there, the guilty one last; the others do not matter for its answer.
    std::vector<std::size_t> led_there;
    // Calls without which the right answer would be another one: they wrote what this one read.
    std::vector<std::size_t> wrote;
    // The one without which the right answer would be the one that was got: it has had no effect.
    std::optional<std::size_t> without_effect;
};

causes find_causes(const sequence::call_sequence &recorded, const sequence::verdict &judged,
                   const std::string &reference);

} // namespace explain
