// SPDX-License-Identifier: MIT
//
// The numbers among the arguments of each operation, as a table.
#include <algorithm>
#include <array>

#include "tools/explore/generator.h"

namespace explore {

namespace {

std::uint64_t negative(std::uint64_t number)
{
    return static_cast<std::uint64_t>(-static_cast<std::int64_t>(number));
}

} // namespace

// How the numbers of each operation are drawn, by the argument's index.
struct generator::number_draws {
    using draw = std::uint64_t (*)(generator &by, op which, const arguments &all);

    static constexpr std::size_t ALL = interface::ARGUMENT_MAX;

    struct row {
        op which;
        std::size_t index; // ALL: every argument that no row before is about
        draw drawn;
    };

    template <std::uint32_t... values>
    static std::uint64_t one_of(generator &by, op, const arguments &)
    {
        return by.chance_.one_of<std::uint32_t>({values...});
    }
    template <std::uint32_t count, std::uint32_t first = 0>
    static std::uint64_t below(generator &by, op, const arguments &)
    {
        return first + by.chance_.below(count);
    }
    // Of a hundred so many are wrong.
    template <std::uint32_t percent, draw wrong, draw usual>
    static std::uint64_t seldom(generator &by, op which, const arguments &all)
    {
        return by.chance_.chance(percent) ? wrong(by, which, all) : usual(by, which, all);
    }
    static std::uint64_t size(generator &by, op, const arguments &) { return by.obtained_size(); }
    static std::uint64_t id(generator &by, op which, const arguments &) { return by.tlv_id(which); }
    static std::uint64_t wide(generator &by, op, const arguments &) { return by.chance_.next(); }
    static std::uint64_t word(generator &by, op, const arguments &)
    {
        return by.chance_.next() & 0xffffffff;
    }

    static std::uint32_t length(generator &by)
    {
        return by.packet_ ? by.world_.length(*by.packet_) : 100;
    }
    static std::uint32_t first_length(generator &by)
    {
        return by.packet_ ? by.world_.first_length(*by.packet_) : 0;
    }
    static std::uint32_t chain(generator &by)
    {
        return by.buffer_ ? by.world_.chain_length(by.buffer_->number) : 100;
    }
    static std::uint32_t own(generator &by)
    {
        return by.buffer_ ? by.world_.buffer_length(by.buffer_->number) : 0;
    }
    static std::uint64_t signed_number(generator &by, std::uint64_t size)
    {
        return by.chance_.chance(50) ? size : negative(size);
    }

    // Of TLVs that are asked for: none have no size.
    template <std::size_t count_at>
    static std::uint64_t tlv_size(generator &by, op which, const arguments &all)
    {
        if (all[count_at].one.number == 0) return 0;
        return one_of<1, 4, 100, 228, 238, 1024>(by, which, all);
    }
    static std::uint64_t data_pointer(generator &by, op, const arguments &)
    {
        const std::uint32_t boundary = own(by);
        return by.chance_.chance(25) ? negative(by.near(64)) : by.near(boundary);
    }
    static std::uint64_t chain_size(generator &by, op, const arguments &)
    {
        return by.near(chain(by) + (by.chance_.chance(50) ? 0 : 64));
    }
    static std::uint64_t own_size(generator &by, op, const arguments &) { return by.near(own(by)); }
    static std::uint64_t trimmed(generator &by, op, const arguments &)
    {
        return by.near(by.chance_.chance(40) && by.buffer_ ? own(by) : chain(by));
    }
    static std::uint64_t adjusted(generator &by, op which, const arguments &all)
    {
        return signed_number(by, trimmed(by, which, all));
    }
    static std::uint64_t place_in_chain(generator &by, op, const arguments &)
    {
        return by.chance_.chance(50) ? 0 : by.chance_.below(chain(by) + 1);
    }
    static std::uint64_t rest_of_chain(generator &by, op, const arguments &all)
    {
        const std::uint64_t place = all[1].one.number;
        return place > chain(by) ? 1 : by.near(chain(by) - place);
    }
    static std::uint64_t copied_from(generator &by, op, const arguments &)
    {
        return by.chance_.chance(40) ? 0 : by.near(chain(by));
    }
    static std::uint64_t copied(generator &by, op which, const arguments &all)
    {
        return by.chance_.chance(35) ? KEL_COPY_ALL : rest_of_chain(by, which, all);
    }
    static std::uint64_t grown(generator &by, op which, const arguments &all)
    {
        return by.near(one_of<16, 64, 200, 1000>(by, which, all));
    }
    static std::uint64_t pieces(generator &by, op, const arguments &)
    {
        const std::uint32_t count = by.buffer_ ? by.world_.chain_count(by.buffer_->number) : 1;
        return by.chance_.chance(20) ? count - 1 : count + by.chance_.below(3);
    }
    static std::uint64_t packet_size(generator &by, op, const arguments &)
    {
        return by.near(length(by) + (by.chance_.chance(70) ? 0 : 64));
    }
    static std::uint64_t offset(generator &by, op, const arguments &)
    {
        return by.near(length(by));
    }
    static std::uint64_t offset_change(generator &by, op, const arguments &)
    {
        return signed_number(by, by.near(by.chance_.chance(50) ? length(by) / 2 : length(by)));
    }
    static std::uint64_t reserved(generator &by, op, const arguments &)
    {
        return by.near(std::min(first_length(by), length(by)));
    }
    static std::uint64_t head_growth(generator &by, op, const arguments &)
    {
        return by.near(by.packet_ && by.chance_.chance(50) ? by.world_.head_room(*by.packet_)
                                                           : 100);
    }
    static std::uint64_t packet_trimmed(generator &by, op, const arguments &)
    {
        return by.near(by.packet_ && by.chance_.chance(40) ? first_length(by) : length(by));
    }
    static std::uint64_t place(generator &by, op, const arguments &)
    {
        return by.chance_.chance(50) ? 0 : by.chance_.below(length(by) + 1);
    }
    static std::uint64_t rest(generator &by, op, const arguments &all)
    {
        const std::uint64_t place = all[2].one.number;
        return place > length(by) ? 1 : by.near(length(by) - place);
    }
    static std::uint64_t duplicated(generator &by, op which, const arguments &all)
    {
        return by.chance_.chance(40) ? KEL_COPY_ALL : rest(by, which, all);
    }

    static constexpr draw OFFSET_KIND = seldom<6, one_of<4, 5, 6, 7, 0xffffffff>, below<4>>;
    static constexpr draw MOSTLY_DATA = seldom<70, below<1>, OFFSET_KIND>;
    static constexpr draw VERSION = one_of<0, 1, 2, 3, 5, 0xffff>;
    static constexpr draw ASKED_VERSION = one_of<0, 1, 2, 5, 0xffff, 0x10001, 0x10005>;
    static constexpr draw WRITTEN_TLV = one_of<1, 2, 4, 16, 40, 100, 228, 228, 229, 238>;
    static constexpr draw READ_TLV = seldom<70, one_of<1024>, one_of<0, 1, 3, 16, 227, 228>>;

    static constexpr row ROWS[] = {
        {op::kel_get_packet, 2, size},
        {op::kel_get_packet, ALL, below<2>},
        {op::kel_get_buffer, 2, size},
        {op::kel_get_buffer, ALL, below<2>},
        {op::kel_get_buffer_list, 2, below<600, 1>},
        {op::kel_get_buffer_list, 3, below<2>},
        {op::kel_get_buffer_list, ALL, one_of<1, 2, 3, 5, 15, 16, 17>},
        {op::kel_get_packet_with_tlv, 2, size},
        {op::kel_get_packet_with_tlv, 3, below<1>},
        {op::kel_get_packet_with_tlv, 4, below<4>},
        {op::kel_get_packet_with_tlv, ALL, tlv_size<4>},
        {op::kel_get_pkthdr_with_tlv, 1, below<4>},
        {op::kel_get_pkthdr_with_tlv, ALL, tlv_size<1>},
        {op::kel_buf_get_dptr, ALL, data_pointer},
        {op::kel_buf_set_length, ALL, chain_size},
        {op::kel_buf_reserve_space, ALL, own_size},
        {op::kel_buf_set_data, 1, place_in_chain},
        {op::kel_buf_set_data, ALL, rest_of_chain},
        {op::kel_buf_get_data, 1, place_in_chain},
        {op::kel_buf_get_data, ALL, rest_of_chain},
        {op::kel_buf_trim_head, ALL, trimmed},
        {op::kel_buf_trim_tail, ALL, trimmed},
        {op::kel_buf_adj, ALL, adjusted},
        {op::kel_buf_add_head, ALL, grown},
        {op::kel_buf_add_tail, ALL, grown},
        {op::kel_buf_get_paddr_iov, ALL, pieces},
        {op::kel_buf_duplicate, 1, copied_from},
        {op::kel_buf_duplicate, ALL, copied},
        {op::kel_register_reserved_bufgroup, 3, one_of<0, 64, 100, 512, 1700>},
        {op::kel_register_reserved_bufgroup, 4, below<12>},
        {op::kel_register_reserved_bufgroup, 5, one_of<0, 0, 16, 64>},
        {op::kel_register_reserved_bufgroup, ALL, below<2>},
        {op::kel_bufgroup_set_params, ALL, seldom<4, one_of<4, 7, 8>, below<3, 1>>},
        {op::kel_register_client, 2, seldom<4, one_of<3>, one_of<0, 0, 1, 2>>},
        {op::kel_register_client, ALL, one_of<0, 1, 4, 8, 9, 12, 32>},
        {op::kel_client_ha_role_notify, ALL, seldom<4, one_of<3, 0xffffffff>, below<3>>},
        {op::kel_pkt_no_sig_required, ALL, below<2>},
        {op::kel_set_sig_threshold, ALL, below<10>},
        {op::kel_set_client_signal_interval, ALL, below<10, 60000>},
        {op::kel_event_add_bufgroup, 2, seldom<5, one_of<0, 4, 7>, below<3, 1>>},
        {op::kel_event_add_bufgroup, ALL, below<0x10000>},
        {op::kel_event_remove_bufgroup, ALL, below<3, 1>},
        {op::kel_set_length, ALL, packet_size},
        {op::kel_get_ifid, 1, seldom<6, one_of<4, 0xffffffff>, below<4>>},
        {op::kel_set_ifid, 1, seldom<6, one_of<4, 0xffffffff>, below<4>>},
        {op::kel_set_ifid, ALL, seldom<50, wide, below<100>>},
        {op::kel_get_offset, ALL, OFFSET_KIND},
        {op::kel_set_offset, 1, OFFSET_KIND},
        {op::kel_set_offset, ALL, offset},
        {op::kel_adj_offset, 1, OFFSET_KIND},
        {op::kel_adj_offset, ALL, offset_change},
        {op::kel_reserve_space, ALL, reserved},
        {op::kel_add_head, ALL, head_growth},
        {op::kel_add_tail, ALL, grown},
        {op::kel_trim_head, ALL, packet_trimmed},
        {op::kel_trim_tail, ALL, packet_trimmed},
        {op::kel_set_data, 1, MOSTLY_DATA},
        {op::kel_set_data, 2, place},
        {op::kel_set_data, ALL, rest},
        {op::kel_get_data, 1, MOSTLY_DATA},
        {op::kel_get_data, 2, place},
        {op::kel_get_data, ALL, rest},
        {op::kel_duplicate, 1, seldom<60, below<1>, OFFSET_KIND>},
        {op::kel_duplicate, 2, seldom<50, below<1>, offset>},
        {op::kel_duplicate, ALL, duplicated},
        {op::kel_tlv_alloc, 1, id},
        {op::kel_tlv_alloc, ALL, one_of<1, 2, 4, 16, 40, 100, 228, 228, 232, 237, 238, 1024>},
        {op::kel_tlv_getdata, 1, id},
        {op::kel_tlv_getdata, 3, READ_TLV},
        {op::kel_tlv_getdata, ALL, ASKED_VERSION},
        {op::kel_tlv_get_versioned_data, 1, id},
        {op::kel_tlv_get_versioned_data, 3, READ_TLV},
        {op::kel_tlv_get_versioned_data, ALL, ASKED_VERSION},
        {op::kel_tlv_setdata, 1, id},
        {op::kel_tlv_setdata, 4, VERSION},
        {op::kel_tlv_setdata, ALL, WRITTEN_TLV},
        {op::kel_tlv_set_versioned_data, 1, id},
        {op::kel_tlv_set_versioned_data, 4, VERSION},
        {op::kel_tlv_set_versioned_data, ALL, WRITTEN_TLV},
        {op::kel_tlv_version_set, 1, id},
        {op::kel_tlv_version_set, ALL, VERSION},
        {op::kel_tlv_version_check, 1, id},
        {op::kel_tlv_version_check, ALL, one_of<0, 1, 2, 3, 5, 0xffff, 0x10001>},
        {op::kel_tlv_free, ALL, id},
        {op::kel_tlv_get_next, ALL, id},
        {op::kel_tlv_version_get, ALL, id},
    };

    using table = std::array<std::array<draw, ALL>, OPERATION_COUNT>;

    static constexpr table TABLE = [] {
        table all{};
        for (auto &each : all) each.fill(seldom<50, below<1000>, word>);
        for (const row &each : ROWS) {
            auto &of = all[static_cast<std::size_t>(each.which)];
            if (each.index == ALL) of.fill(each.drawn);
        }
        for (const row &each : ROWS) {
            if (each.index == ALL) continue;
            all[static_cast<std::size_t>(each.which)][each.index] = each.drawn;
        }
        return all;
    }();
};

std::uint64_t generator::number_for(op which, std::size_t index, const arguments &all)
{
    return number_draws::TABLE[static_cast<std::size_t>(which)][index](*this, which, all);
}

} // namespace explore
