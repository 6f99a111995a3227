// SPDX-License-Identifier: MIT
//
// Sizes, ids, records and data: mostly at the boundaries of what an object holds.
#include <algorithm>
#include <array>

#include "tools/explore/generator.h"
#include "tools/sequence/data.h"

namespace explore {

namespace {

using sequence::value_kind;

// Pieces of the cases' pattern, which sequences can write down in few words, each begun elsewhere:
// so data that came to a wrong place shows.
class written_pool {
public:
    static constexpr std::size_t SEEDS = 16;
    static constexpr std::size_t SKIPPED_MAX = 4096;
    static constexpr std::size_t LENGTH = call_memory::DATA_MAX + SKIPPED_MAX;

    written_pool()
    {
        constexpr std::size_t PIECE = 700;
        for (std::size_t seed = 0; seed < SEEDS; seed++) {
            for (std::size_t i = 0; i < LENGTH; i += PIECE) {
                const std::size_t number = seed * 61 + i / PIECE * 37;
                bytes_ += sequence::bytes_of({sequence::stretch_kind::pattern,
                                              static_cast<std::uint8_t>(number),
                                              std::min(PIECE, LENGTH - i),
                                              number % 256,
                                              {}});
            }
        }
    }

    std::string_view stretch(std::size_t seed, std::size_t skipped, std::size_t length) const
    {
        return std::string_view(bytes_).substr(seed % SEEDS * LENGTH + skipped % SKIPPED_MAX,
                                               length);
    }

private:
    std::string bytes_;
};

constexpr std::uint32_t BEYOND_ALL = 0x7fffffff;

} // namespace

std::string_view written_data(std::uint32_t seed, std::size_t skipped, std::size_t length)
{
    static const written_pool POOL;
    return POOL.stretch(seed, skipped, length);
}

flat_argument generator::data_of(std::size_t length)
{
    const std::uint32_t seed = chance_.below(16);
    return out_.data(written_data(seed, chance_.below(64), length));
}

// At the boundary, beside it, or anywhere before it.
std::uint64_t generator::near(std::uint64_t boundary)
{
    switch (chance_.below(10)) {
    case 0:
        return boundary + 1;
    case 1:
    case 2:
        return boundary;
    case 3:
        return boundary > 0 ? boundary - 1 : 0;
    case 4:
        return boundary / 2;
    case 5:
        return 1;
    default:
        return chance_.below(boundary + 1);
    }
}

std::uint32_t generator::obtained_size()
{
    const std::uint32_t kind = chance_.below(100);
    if (kind < 45) return 1 + chance_.below(130);
    if (kind < 80) return chance_.one_of<std::uint32_t>({64, 100, 256, 512, 512, 1000});
    if (kind < 96) return 1000 + chance_.below(1000);
    if (kind < 99) return chance_.one_of<std::uint32_t>({8192, 8193, 9000, 16384, 16385, 20000});
    return chance_.one_of<std::uint32_t>({65536, BEYOND_ALL});
}

// Mostly one that the packet has.
std::uint32_t generator::tlv_id(op which)
{
    if (which != op::kel_tlv_alloc && packet_ != nullptr && chance_.chance(75)) {
        const kel_functions &kel = out_.asked();
        std::uint32_t id = 0;
        kel.kel_tlv_get_head(packet_->number, &id);
        for (std::uint32_t next = id; next != 0 && !chance_.chance(40); id = next) {
            if (kel.kel_tlv_get_next(packet_->number, &next) != 0 || next == 0) break;
        }
        if (id != 0) return id;
    }
    if (chance_.chance(3)) return 0;
    return chance_.chance(95) ? 1 + chance_.below(4)
                              : chance_.one_of<std::uint32_t>({9, 0xffffffff});
}

flat_argument generator::thresholds_record()
{
    const bool in_buffers = chance_.chance(60);
    const std::uint64_t low = in_buffers ? chance_.below(3) : 64 * chance_.below(6);
    const std::uint64_t high = low + 1 + (in_buffers ? chance_.below(4) : chance_.below(600));
    const std::uint64_t most = high + 1 + (in_buffers ? chance_.below(4) : chance_.below(600));
    const std::array<scalar, 3> fields{{{most}, {low}, {high}}};
    if (chance_.chance(2)) return recorder::nothing();
    return out_.record(fields);
}

// What to read: the mask alone. What to write: fields that a packet can have.
flat_argument generator::metadata_record(op which)
{
    constexpr std::uint32_t OPAQUE = KEL_METADATA_OPAQUE_1 | KEL_METADATA_OPAQUE_2 |
                                     KEL_METADATA_OPAQUE_3 | KEL_METADATA_OPAQUE_4;
    constexpr std::uint32_t ALL = 0x3fffff & ~OPAQUE;
    std::array<scalar, 23> fields{};
    if (chance_.below(1000) < 8) return recorder::nothing();
    const std::uint32_t drawn = static_cast<std::uint32_t>(chance_.next()) & ALL;
    const std::uint32_t single = 1U << chance_.below(22) & ALL;
    std::uint32_t mask = chance_.one_of<std::uint32_t>({ALL, drawn, single, single | drawn});
    fields[0].number = mask;
    if (which == op::kel_metadata_get) return out_.record(std::span(fields).first(1));
    const std::uint32_t length = packet_ ? world_.length(*packet_) : 0;
    // A length that is refused would hide all else.
    if (chance_.chance(70)) mask &= ~KEL_METADATA_LENGTH;
    fields[0].number = mask;
    for (std::size_t i = 1; i < fields.size(); i++) fields[i].number = chance_.next() & 0xffff;
    fields[1].number = near(length);
    const std::uint64_t left = mask & KEL_METADATA_LENGTH ? fields[1].number : length;
    for (std::size_t i = 13; i <= 16; i++) {
        fields[i].number = chance_.chance(4) ? left + 1 : chance_.below(left + 1);
    }
    fields[2].number = chance_.one_of<std::uint32_t>({2, 5, 99, 700});
    for (std::size_t i = 19; i < fields.size(); i++) fields[i].number = chance_.next();
    return out_.record(fields);
}

// One event a client at a time: the contract says nothing of the order of several.
flat_argument generator::event_record(op which)
{
    std::array<scalar, 6> fields{};
    if (chance_.chance(1)) return recorder::nothing();
    const bool adds = which == op::kel_event_add;
    if (adds && client_ && client_->has_event) return {};
    fields[2].number = chance_.below(0x10000);
    fields[3].number = chance_.below(0x10000);
    const std::uint32_t type = chance_.below(100);
    if (type < 5) {
        fields[0].number = chance_.one_of<std::uint32_t>({0, 5, 77});
        fields[4].number = 5;
    } else if (type < 10 && !adds && client_ && client_->has_event) {
        fields[0].number = KEL_EVENT_ALL;
    } else if (type < 40) {
        fields[0].number = KEL_EVENT_BUFGROUP;
        fields[4] = group_for(which).one;
        if (fields[4] == scalar{}) return {};
        fields[5].number = chance_.chance(5) ? 4 : 1 + chance_.below(3);
    } else {
        fields[0].number = chance_.chance(50) ? KEL_EVENT_TAG : KEL_EVENT_TAG_REGISTERED;
        fields[4] = tag_for(op::kel_event_add_tag).one;
        if (adds && is_tag_shared(fields[4])) return {};
    }
    if (chance_.chance(3)) fields[1].number = 1;
    return out_.record(fields);
}

// Of groups without thresholds: whether a notice is told in a list is nobody's promise.
flat_argument generator::packet_list_record()
{
    constexpr std::size_t REQUEST = 6;
    constexpr std::size_t REQUESTS_END = 1 + REQUEST * KEL_LIST_MAX;
    std::array<scalar, REQUESTS_END + 2 * KEL_LIST_MAX + 1> fields{};
    const std::uint32_t count = chance_.one_of<std::uint32_t>({1, 2, 3, 9, 16, 17});
    fields[0].number = count;
    const std::uint32_t filled = std::min<std::uint32_t>(count, KEL_LIST_MAX);
    for (std::uint32_t i = 0; i < filled; i++) {
        scalar *request = &fields[1 + REQUEST * i];
        const object *client = world_.pick_live(role::client);
        if (client && !chance_.chance(4)) request[0] = {0, client->name};
        const object *group = world_.pick(role::bufgroup, [&](const object &each) {
            return !each.has_thresholds && client && world_.is_registered(each, *client);
        });
        if (group && chance_.chance(30)) request[1] = {0, group->name};
        request[2].number = 1 + chance_.below(300);
        request[4].number = chance_.below(3);
        if (request[4].number) request[5].number = chance_.one_of<std::uint32_t>({4, 228, 1024});
    }
    if (chance_.chance(80)) return out_.record(std::span(fields).first(1 + REQUEST * filled));
    // What the library has to write is not as it will be.
    for (std::size_t i = REQUESTS_END; i < fields.size(); i++) fields[i].number = 77;
    return out_.record(fields);
}

} // namespace explore
