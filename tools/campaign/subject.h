// SPDX-License-Identifier: MIT
//
// What a campaign is about, told by content: results of another tavor, table or library do not
// belong into the same table, whatever the files are called and wherever they lie.
#pragma once

#include <string>

#include "tools/campaign/experiment.h"

namespace campaign {

struct subject {
    std::string build;   // of tavor, shim, open choices and table of pairs
    std::string library; // of the libkel.so that tavor loads; empty when it finds none

    bool operator==(const subject &) const = default;
};

// Throws std::runtime_error when a file cannot be read.
subject subject_of(const setting &where, const std::string &pairs_folder);

} // namespace campaign
