// SPDX-License-Identifier: MIT
//
// Where results go: a file or, as "-", standard output.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "tools/common/unique_fd.h"

namespace tools {

// Writes all of it; false, with errno, when that cannot be.
bool write_all(int descriptor, std::string_view text);

class output_file {
public:
    // Throws a usage_error when it cannot be written. What the file holds stays until something is
    // written to it.
    explicit output_file(std::string path);

    // Adds to it at once: nothing is lost when this program dies.
    void append(std::string_view text);

    // Exchanges the whole, so that there is never half a document: through a draft beside the file
    // that takes its place. Where that is refused, to a mount point for instance, in place.
    void replace(std::string_view text);
    // The same for what is not the end: left out where it would take most of the time.
    template <typename Make> void update(Make make_text)
    {
        using clock = std::chrono::steady_clock;
        const auto start = clock::now();
        if (is_regular && start >= next_update) {
            replace(make_text());
            next_update = clock::now() + UPDATE_SHARE * (clock::now() - start);
        }
    }

private:
    static constexpr int UPDATE_SHARE = 10;

    bool replace_by_draft(std::string_view text);

    std::chrono::steady_clock::time_point next_update{};
    std::string path; // links followed
    bool is_regular = false;
    bool is_begun = false;
    unique_fd opened;
    int descriptor = -1;
};

} // namespace tools
