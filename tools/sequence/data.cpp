// SPDX-License-Identifier: MIT
//
// The pattern is that of tavor's cases: each byte is its position times the state, plus one; the
// state starts as the seed and grows by each byte. All is modulo 256, so a seed is a byte.
#include "tools/sequence/data.h"

#include <algorithm>

namespace sequence {

namespace {

// Shorter ones are clearer as they are.
constexpr std::size_t PATTERN_MIN = 8;
constexpr std::size_t FILL_MIN = 8;

class pattern {
public:
    explicit pattern(std::uint8_t seed) : state_(seed) {}

    std::uint8_t next()
    {
        const auto byte = static_cast<std::uint8_t>(position_++ * state_ + 1);
        state_ = static_cast<std::uint8_t>(state_ + byte);
        return byte;
    }

    void skip(std::size_t count)
    {
        while (count-- > 0) next();
    }

private:
    std::size_t position_ = 0;
    std::uint8_t state_;
};

std::size_t matching(std::string_view data, pattern from)
{
    std::size_t count = 0;
    while (count < data.size() && static_cast<std::uint8_t>(data[count]) == from.next()) count++;
    return count;
}

// A pattern's bytes, further on: they come again every 256 bytes, and are the same for all seeds
// after the first few.
stretch later_in_pattern(std::string_view data)
{
    constexpr std::size_t SKIPPED_MAX = 512;
    constexpr std::size_t SEED_MATTERS = 16;
    for (std::size_t seed = 0; seed < 256; seed++) {
        pattern from(static_cast<std::uint8_t>(seed));
        const std::size_t most = seed == 0 ? SKIPPED_MAX : SEED_MATTERS;
        for (std::size_t skipped = 0; skipped < most; skipped++) {
            if (matching(data.substr(0, PATTERN_MIN), from) == PATTERN_MIN) {
                return {stretch_kind::pattern, static_cast<std::uint8_t>(seed),
                        matching(data, from), skipped};
            }
            from.next();
        }
    }
    return {};
}

std::size_t fill_length(std::string_view data)
{
    const std::size_t end = data.find_first_not_of(data.front());
    return end == std::string_view::npos ? data.size() : end;
}

stretch pattern_at(std::string_view data, bool is_start)
{
    if (data.size() < PATTERN_MIN) return {};
    // A whole pattern tells its seed by its second byte.
    if (data[0] == 1) {
        const auto seed = static_cast<std::uint8_t>(data[1] - 2);
        const std::size_t length = matching(data, pattern(seed));
        if (length >= PATTERN_MIN) return {stretch_kind::pattern, seed, length};
    }
    // Elsewhere the search would cost too much.
    return is_start ? later_in_pattern(data) : stretch{};
}

stretch stretch_at(std::string_view data, bool is_start)
{
    const std::size_t same = fill_length(data);
    if (same >= FILL_MIN) {
        return {stretch_kind::fill, static_cast<std::uint8_t>(data.front()), same};
    }
    return pattern_at(data, is_start);
}

} // namespace

std::vector<stretch> stretches_of(std::string_view data)
{
    std::vector<stretch> found;
    std::size_t plain_from = 0;
    std::size_t at = 0;
    const auto end_plain = [&] {
        if (at > plain_from) {
            found.push_back({stretch_kind::plain, 0, at - plain_from, 0,
                             data.substr(plain_from, at - plain_from)});
        }
    };
    while (at < data.size()) {
        const stretch here = stretch_at(data.substr(at), at == plain_from);
        if (here.length == 0) {
            at++;
            continue;
        }
        end_plain();
        found.push_back(here);
        at += here.length;
        plain_from = at;
    }
    end_plain();
    return found;
}

std::string bytes_of(const stretch &one)
{
    if (one.kind == stretch_kind::plain) return std::string(one.bytes);
    if (one.kind == stretch_kind::fill) {
        return std::string(one.length, static_cast<char>(one.number));
    }
    pattern from(one.number);
    from.skip(one.skipped);
    std::string bytes;
    bytes.reserve(one.length);
    for (std::size_t i = 0; i < one.length; i++) bytes += static_cast<char>(from.next());
    return bytes;
}

} // namespace sequence
