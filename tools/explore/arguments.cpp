// SPDX-License-Identifier: MIT
//
// Arguments: handles of what lives, seldom one that is wrong, and what goes with them.
#include <algorithm>
#include <array>
#include <string>

#include "tools/explore/generator.h"

namespace explore {

namespace {

using interface::form;
using sequence::shape;
using sequence::value_kind;

// Names that collide, and those of the lengths at which a library may refuse them.
constexpr const char *NAMES[] = {"a", "b", "c", "dup_pkt test group"};

bool is_obtaining(op which)
{
    return which == op::kel_get_packet || which == op::kel_get_packet_with_tlv ||
           which == op::kel_get_buffer || which == op::kel_get_buffer_list;
}

// What changes a chain as a whole: left to chains of their own, and to their heads.
bool changes_chain(op which)
{
    switch (which) {
    case op::kel_buf_append:
    case op::kel_buf_set_length:
    case op::kel_buf_reserve_space:
    case op::kel_buf_trim_head:
    case op::kel_buf_trim_tail:
    case op::kel_buf_adj:
    case op::kel_buf_add_head:
    case op::kel_buf_add_tail:
    case op::kel_buf_duplicate:
        return true;
    default:
        return false;
    }
}

bool touches_queued(op which)
{
    switch (which) {
    case op::kel_free_packet:
    case op::kel_send:
    case op::kel_get_length:
    case op::kel_get_tag:
        return true;
    default:
        return false;
    }
}

} // namespace

flat_argument generator::wrong_handle(role what)
{
    is_wrong_ = true;
    switch (chance_.below(4)) {
    case 0:
        return recorder::number(0);
    case 1:
        return recorder::number(chance_.one_of<std::uint32_t>({0xdeadface, KEL_BAD_HANDLE}));
    default: {
        object *gone =
            world_.pick(what, [this](const object &each) { return !world_.is_live(each); });
        if (gone && what != role::tag) return recorder::variable(gone->name);
        return recorder::number(0);
    }
    }
}

flat_argument generator::client_for(op which)
{
    const bool is_optional = which == op::kel_is_tag_registered || which == op::kel_get_count_bytag;
    if (is_optional && chance_.chance(50)) return recorder::number(0);
    client_ = world_.pick_live(role::client);
    if (client_ == nullptr) return recorder::number(0);
    return recorder::variable(client_->name);
}

flat_argument generator::packet_for(op which)
{
    const bool may_be_queued = touches_queued(which) && chance_.chance(15);
    packet_ = world_.pick(role::packet, [&](const object &each) {
        return each.is_queued == may_be_queued && world_.is_live(each);
    });
    const object *client = packet_ ? nullptr : world_.pick_live(role::client);
    // Another one, where there is none: most calls need one.
    if (client != nullptr) {
        packet_ = world_.find(role::packet, new_packet(client->name, 0, 1 + chance_.below(300)));
    }
    if (packet_ == nullptr) return recorder::number(0);
    return recorder::variable(packet_->name);
}

flat_argument generator::buffer_for(op which, std::size_t index)
{
    const bool is_given = which == op::kel_append || which == op::kel_prepend ||
                          (which == op::kel_buf_append && index == 1);
    const bool is_whole = is_given || changes_chain(which);
    const bool wants_refusal = is_given && chance_.chance(10);
    object *found = world_.pick(role::buffer, [&](const object &each) {
        if (!world_.is_live(each)) return false;
        if (wants_refusal) return each.is_in_packet;
        return !is_whole || (!each.is_in_packet && !each.is_inner);
    });
    const object *client = found ? nullptr : world_.pick_live(role::client);
    if (client != nullptr) {
        const std::int32_t first = buffer_ ? buffer_->name : -1;
        const bool is_one = chance_.chance(70);
        found =
            world_.find(role::buffer,
                        new_buffer(client->name, is_one ? 1 + chance_.below(300) : 20000, is_one));
        buffer_ = world_.find(role::buffer, first); // it may have moved
    }
    if (index == 0 || buffer_ == nullptr) buffer_ = found;
    if (found == nullptr) return recorder::number(0);
    return recorder::variable(found->name);
}

flat_argument generator::group_for(op which)
{
    const bool is_optional = is_obtaining(which);
    if (is_optional && chance_.chance(55)) return recorder::number(0);
    const bool is_foreign = chance_.chance(6);
    group_ = world_.pick(role::bufgroup, [&](const object &each) {
        return client_ == nullptr || world_.is_registered(each, *client_) != is_foreign;
    });
    if (group_ == nullptr) return recorder::number(is_optional ? 0 : 0xdeadface);
    return recorder::variable(group_->name);
}

flat_argument generator::tag_for(op which)
{
    const bool is_sent = which == op::kel_set_tag || which == op::kel_event_add_tag ||
                         which == op::kel_get_count_bytag || which == op::kel_deregister_tag;
    if (chance_.chance(3)) return recorder::number(0);
    if (chance_.chance(which == op::kel_free_tag ? 85 : 30)) {
        object *tag = world_.pick_live(role::tag);
        if (tag != nullptr) return recorder::variable(tag->name);
    }
    std::uint32_t number = 0;
    for (int i = 0; i < 3; i++) {
        number = chance_.one_of<std::uint32_t>({2, 5, 99, 700});
        if (!is_sent || world_.is_held(number)) break;
    }
    return recorder::number(number);
}

flat_argument generator::text_for(op which)
{
    const bool is_group =
        which == op::kel_register_bufgroup || which == op::kel_register_reserved_bufgroup;
    if (!is_group && chance_.chance(30)) return recorder::nothing();
    if (is_group && chance_.chance(2)) {
        return chance_.chance(50) ? recorder::nothing() : out_.data("");
    }
    // A regular and a reserved group share no name, but for a refusal.
    const bool is_reserved = which == op::kel_register_reserved_bufgroup;
    std::string name = NAMES[chance_.below(std::size(NAMES))];
    if (is_group && is_reserved != chance_.chance(5)) name = "reserved " + name;
    return out_.data(name);
}

flat_argument generator::timeout()
{
    return out_.record(std::array<scalar, 2>{});
}

// More microseconds than a second has.
flat_argument generator::wrong_timeout()
{
    const std::uint64_t beyond = chance_.one_of<std::uint32_t>({1000000, 1000001, 0x7fffffff});
    return out_.record(std::array<scalar, 2>{{{0}, {beyond}}});
}

bool generator::make_argument(op which, std::size_t index, const sequence::parameter &where,
                              arguments &all)
{
    flat_argument &made = all[index];
    const bool may_be_wrong = !is_wrong_ && chance_.below(1000) < 25;
    if (where.shape == shape::text) {
        made = text_for(which);
        return true;
    }
    if (!where.is_read()) {
        const bool is_optional = where.form == form::error ||
                                 which == op::kel_tlv_get_versioned_data || where.is_count();
        made = recorder::output();
        if (where.by_address && chance_.below(1000) < (is_optional ? 20U : 8U)) {
            made = recorder::nothing();
        }
        return true;
    }
    switch (where.form) {
    case form::event:
        made = event_record(which);
        return made.kind != value_kind::absent;
    case form::thresholds:
        made = thresholds_record();
        return true;
    case form::metadata:
        made = metadata_record(which);
        return true;
    case form::packet_list:
        made = packet_list_record();
        return made.kind != value_kind::absent;
    case form::timeout:
        made = which == op::kel_event_wait && chance_.chance(3) ? wrong_timeout() : timeout();
        return true;
    case form::bytes:
        return true; // with its length
    default:
        break;
    }
    switch (where.what) {
    case role::client:
        made = may_be_wrong ? wrong_handle(role::client) : client_for(which);
        return true;
    case role::packet:
        made = may_be_wrong ? wrong_handle(role::packet) : packet_for(which);
        return made.one != scalar{} || may_be_wrong;
    case role::buffer:
        made = may_be_wrong ? wrong_handle(role::buffer) : buffer_for(which, index);
        return made.one != scalar{} || may_be_wrong;
    case role::bufgroup:
        made = may_be_wrong && !is_obtaining(which) ? wrong_handle(role::number) : group_for(which);
        return true;
    case role::tag:
        made = tag_for(which);
        return true;
    default:
        made = recorder::number(number_for(which, index, all));
        return true;
    }
}

bool generator::make_arguments(op which, arguments &all)
{
    client_ = packet_ = buffer_ = group_ = nullptr;
    is_wrong_ = false;
    const auto &parameters =
        sequence::schema_of(static_cast<sequence::operation>(which)).parameters;
    for (std::size_t i = 0; i < parameters.size(); i++) {
        if (!make_argument(which, i, parameters[i], all)) return false;
    }
    // Data has the length that was drawn after it.
    for (std::size_t i = 0; i < parameters.size(); i++) {
        const sequence::parameter &where = parameters[i];
        if (where.shape != shape::bytes || where.count_at < 0) continue;
        const std::uint64_t length = all[static_cast<std::size_t>(where.count_at)].one.number;
        if (length > 0 && chance_.below(1000) < 8) {
            all[i] = recorder::nothing();
        } else if (where.is_read()) {
            all[i] = data_of(length);
        }
    }
    return is_meaningful(which, all);
}

// Whether holders of the tag take turns: when its event fires then, the contract does not say.
bool generator::is_tag_shared(const scalar &tag) const
{
    const std::uint32_t number =
        tag.name < 0 ? static_cast<std::uint32_t>(tag.number) : out_.number_of(tag.name);
    return std::ranges::any_of(world_.all(role::client), [&](const object &each) {
        return each.shares_tags && out_.asked().kel_is_tag_registered(each.number, number);
    });
}

// Whether the contract says what becomes of the call.
bool generator::is_meaningful(op which, const arguments &all) const
{
    const auto value = [&](std::size_t index) { return all[index].one.number; };
    switch (which) {
    case op::kel_reserve_space:
        return packet_ == nullptr || !packet_->has_reserved_buffers;
    case op::kel_register_client:
        return world_.count(role::client) < 5;
    case op::kel_get_packet:
    case op::kel_get_buffer:
        return world_.count(role::packet) < 40;
    case op::kel_event_add_tag:
        return client_ == nullptr || (!client_->has_event && !is_tag_shared(all[1].one));
    case op::kel_event_add_bufgroup:
        return client_ == nullptr || !client_->has_event;
    // A library may give out the number of a freed tag again, or not.
    case op::kel_alloc_tag:
        return std::ranges::none_of(world_.all(role::tag), &object::is_freed);
    case op::kel_set_data:
        return value(4) > 0 || value(2) == 0;
    case op::kel_get_data:
        return all[4].kind == value_kind::null || value(4) > 0 || value(2) == 0;
    case op::kel_buf_set_data:
        return value(3) > 0 || value(1) == 0;
    case op::kel_buf_get_data:
        return all[3].kind == value_kind::null || value(3) > 0 || value(1) == 0;
    default:
        return true;
    }
}

} // namespace explore
