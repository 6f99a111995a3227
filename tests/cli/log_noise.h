// SPDX-License-Identifier: MIT
//
// Recorded console logs, what they say, and what consoles do to them.
#pragma once

#include <cstddef>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace log_noise {

// What is true of a case in an undamaged log, and which of its bytes show it.
struct truth {
    std::string verdict{}; // PASS, IGNORE or FAIL
    std::size_t name = 0;  // where its name column starts
    std::size_t start = 0; // of the verdict
    std::size_t end = 0;   // behind the end of the verdict's line
};

// By row. Read apart from the code under test: names by search, the verdict before the next.
std::vector<truth> truths_in(const std::string &log);

std::string recorded(const std::string &file);

// A log whose bytes remember where they were.
class noisy_log {
public:
    noisy_log(const std::string &log, unsigned seed);

    // One of the things that happen: bytes lost, changed, added; lines lost; foreign text.
    void disturb();
    // What is done to all lines.
    void add_stamps();
    void add_returns();

    std::string text() const;
    // Where each byte of the original is now; `size` bytes were there. -1: lost.
    std::vector<std::ptrdiff_t> places(std::size_t size) const;

private:
    struct byte {
        char value;
        std::ptrdiff_t from; // -1: noise
    };

    std::size_t below(std::size_t limit);
    std::size_t line_start(std::size_t at) const;
    void insert(std::size_t at, std::string_view noise);
    void erase(std::size_t first, std::size_t last);

    std::vector<byte> bytes;
    std::mt19937 random;
};

// Whether these bytes of the original are all there, unchanged and without others between.
bool has_kept(const std::vector<std::ptrdiff_t> &places, std::size_t first, std::size_t last);

} // namespace log_noise
