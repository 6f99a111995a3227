// SPDX-License-Identifier: MIT
//
// A part of what there is to do, for several machines to share it.
#pragma once

#include <string>

#include "tools/common/usage_error.h"

namespace tools {

struct shard {
    unsigned index = 1; // from 1
    unsigned count = 1;
};

// "2/5"; a usage error when it is no such thing.
shard parse_shard(const std::string &text);

} // namespace tools
