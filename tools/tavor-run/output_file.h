// SPDX-License-Identifier: MIT
//
// Where a report goes: a file or, as "-", standard output.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace tavor_run {

class output_file {
public:
    // Starts it anew; a usage error when that cannot be.
    explicit output_file(std::string path);
    output_file(const output_file &) = delete;
    output_file &operator=(const output_file &) = delete;
    ~output_file();

    // Adds to it at once: nothing is lost when this program dies.
    void append(std::string_view text);

    // Exchanges the whole, so that there is never half a document.
    void replace(std::string_view text);
    // The same for what is not the end: left out where it would take most of the time.
    template <typename Make> void update(Make make_text)
    {
        using clock = std::chrono::steady_clock;
        const auto start = clock::now();
        if (replaceable && start >= next_update) {
            replace(make_text());
            next_update = clock::now() + UPDATE_SHARE * (clock::now() - start);
        }
    }

private:
    static constexpr int UPDATE_SHARE = 10;

    std::chrono::steady_clock::time_point next_update{};
    std::string path;
    bool replaceable = false;
    int descriptor = -1;
};

} // namespace tavor_run
