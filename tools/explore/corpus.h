// SPDX-License-Identifier: MIT
//
// Sequences that are worth being made again, in a folder, a file each; and a folder for findings.
#pragma once

#include <string>
#include <vector>

#include "tools/explore/examination.h"
#include "tools/sequence/sequence.h"

namespace explore {

class corpus {
public:
    // Empty names: there is none. The folders are made where they are missing; throws
    // tools::usage_error when they cannot be.
    corpus(std::string sequences, std::string findings);

    // All in the folder, in the order of their names. Throws tools::usage_error for a file that is
    // none.
    std::vector<sequence::call_sequence> sequences() const;

    // The reduced sequence, the program and what was expected.
    void keep(const found &one, std::size_t number) const;

private:
    std::string sequences_;
    std::string findings_;
};

} // namespace explore
