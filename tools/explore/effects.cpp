// SPDX-License-Identifier: MIT
//
// What calls have changed, and a look at the objects that they were about.
#include <algorithm>

#include "tools/explore/generator.h"

namespace explore {

namespace {

bool has_worked(std::uint64_t result)
{
    return result == 0 || result == KEL_HIGH_THRESHOLD_REACHED ||
           result == KEL_LOW_THRESHOLD_REACHED;
}

event_key event_of(const recorder &made, op which, const flat_argument &about,
                   const flat_argument &flags)
{
    switch (which) {
    case op::kel_event_add_tag:
    case op::kel_event_remove_tag:
        return {KEL_EVENT_TAG, about.one};
    case op::kel_event_add_bufgroup:
    case op::kel_event_remove_bufgroup:
        return {KEL_EVENT_BUFGROUP, about.one, flags.one.number};
    default:
        if (about.kind != sequence::value_kind::record) return {};
        return {made.field(about, 0).number, made.field(about, 4), made.field(about, 5).number};
    }
}

} // namespace

// Objects that the answer names: they are known from now on, and stand in the chain of what was
// asked.
void generator::name_given(op which, const arguments &all)
{
    const std::int32_t asked = all[0].one.name;
    for (const given_object &each : out_.given()) {
        object &made = world_.add(each);
        if (each.what == role::tag) made.owner = asked;
        if (each.what != role::buffer) continue;
        made.chain = world_.new_chain();
        const int chain = made.chain;
        const object *buffer = world_.find(role::buffer, asked);
        const bool is_of_packet = which == op::kel_get_buf_head;
        const bool is_of_chain = which == op::kel_buf_get_next || which == op::kel_buf_trim_head ||
                                 which == op::kel_buf_adj || which == op::kel_buf_trim_tail ||
                                 which == op::kel_buf_add_head;
        made.is_in_packet = is_of_packet;
        if (is_of_chain && buffer && buffer->name != made.name) {
            made.chain = buffer->chain;
            made.is_in_packet = buffer->is_in_packet;
            made.is_inner = which == op::kel_buf_get_next;
        } else {
            made.chain = chain;
        }
    }
}

void generator::note_chain(std::int32_t first, std::int32_t added)
{
    const object *into = world_.find(role::buffer, first);
    const object *from = world_.find(role::buffer, added);
    if (!into || !from) return;
    const int chain = into->chain;
    const bool is_in_packet = into->is_in_packet;
    world_.for_chain(*from, [&](object &each) {
        each.is_inner = true;
        each.is_in_packet = is_in_packet;
    });
    const int old = from->chain;
    for (object &each : world_.all(role::buffer)) {
        if (each.chain == old) each.chain = chain;
    }
}

void generator::free_tags(std::int32_t owner)
{
    for (object &each : world_.all(role::tag)) {
        if (each.owner == owner) each.is_freed = true;
    }
}

void generator::note(op which, const arguments &all, std::uint64_t result)
{
    name_given(which, all);
    const std::int32_t first = all[0].one.name;
    const std::int32_t second = all[1].one.name;
    object *client = world_.find(role::client, first);
    object *packet = world_.find(role::packet, first);
    switch (which) {
    case op::kel_register_client:
        if (result == 0 && !out_.given().empty()) {
            world_.all(role::client).back().shares_tags = all[2].one.number == KEL_ROLE_STANDBY;
        }
        break;
    case op::kel_deregister_client:
        if (result == 0) free_tags(first);
        break;
    case op::kel_free_tag:
        if (object *tag = world_.find(role::tag, second); tag && result == 0) tag->is_freed = true;
        break;
    case op::kel_send:
        if (object *sent = world_.find(role::packet, second); sent && result == 0) {
            sent->is_queued = true;
        }
        break;
    case op::kel_recv:
        for (const std::int32_t each : out_.named()) {
            if (object *received = world_.find(role::packet, each)) received->is_queued = false;
        }
        break;
    case op::kel_append:
    case op::kel_prepend:
        if (const object *added = world_.find(role::buffer, second); added && result == 0) {
            world_.for_chain(*added, [&](object &each) {
                each.is_in_packet = true;
                if (each.is_reserved && packet) packet->has_reserved_buffers = true;
            });
        }
        break;
    case op::kel_buf_append:
        if (result == 0) note_chain(first, second);
        break;
    case op::kel_buf_reserve_space:
        if (object *buffer = world_.find(role::buffer, first); buffer && result == 0) {
            buffer->is_reserved = true;
        }
        break;
    case op::kel_buf_trim_head:
    case op::kel_buf_adj:
        // The new head may have been known as a later buffer.
        for (const std::int32_t each : out_.named()) {
            if (object *head = world_.find(role::buffer, each)) head->is_inner = false;
        }
        break;
    case op::kel_bufgroup_set_params:
        if (object *group = world_.find(role::bufgroup, second); group && result == 0) {
            group->has_thresholds = true;
        }
        break;
    case op::kel_event_add:
    case op::kel_event_add_tag:
    case op::kel_event_add_bufgroup:
        if (client && result == 0) {
            client->has_event = true;
            client->event = event_of(out_, which, all[1], all[2]);
        }
        break;
    case op::kel_event_remove:
    case op::kel_event_remove_tag:
    case op::kel_event_remove_bufgroup: {
        const event_key removed = event_of(out_, which, all[1], all[2]);
        if (client && has_worked(result) &&
            (removed == client->event || removed.type == KEL_EVENT_ALL)) {
            client->has_event = false;
        }
        break;
    }
    case op::kel_event_clear:
        if (client && result == 0) client->has_event = false;
        break;
    case op::kel_event_wait:
        if (client && result == 0 && out_.last_event_type() != KEL_EVENT_NONE) {
            client->has_event = false;
        }
        break;
    default:
        break;
    }
}

void generator::look_at(role what, std::int32_t name)
{
    const flat_argument out = recorder::output();
    const flat_argument itself = recorder::variable(name);
    if (what == role::packet) {
        look_at_packet(name);
    } else if (what == role::buffer) {
        look_at_buffer(name);
    } else if (what == role::bufgroup) {
        const object *client = world_.pick_live(role::client);
        if (!client) return;
        const flat_argument asking = recorder::variable(client->name);
        if (chance_.chance(70)) {
            call(op::kel_get_count_bygroup, {asking, itself, out, out});
        } else {
            call(op::kel_bufgroup_get_params, {asking, itself, out, out, out});
        }
    } else if (what == role::client) {
        const std::uint32_t kind = chance_.below(10);
        if (kind < 5) {
            call(op::kel_get_bufcount_byclient, {itself, out, out});
        } else if (kind < 7) {
            call(op::kel_queue_is_empty, {itself});
        } else {
            call(op::kel_get_count_bytag, {chance_.chance(50) ? itself : recorder::number(0),
                                           tag_for(op::kel_set_tag), out, out});
        }
    }
}

// Fills what has come to be data: what nobody has written cannot be compared.
void generator::write_after(op which, std::int32_t packet, std::int32_t buffer)
{
    constexpr std::uint32_t LONGEST = 20000;
    const bool gives = which == op::kel_get_packet || which == op::kel_get_buffer ||
                       which == op::kel_get_packet_with_tlv;
    const bool grows = which == op::kel_append || which == op::kel_prepend ||
                       which == op::kel_add_head || which == op::kel_add_tail ||
                       which == op::kel_buf_append || which == op::kel_buf_add_head ||
                       which == op::kel_buf_add_tail;
    if ((!gives && !grows) || !chance_.chance(40)) return;
    if (gives) {
        if (out_.given().empty()) return;
        const given_object made = out_.given().back();
        packet = made.what == role::packet ? made.name : -1;
        buffer = made.what == role::buffer ? made.name : -1;
    }
    const flat_argument start = recorder::number(0);
    if (packet >= 0) {
        const std::uint32_t length = world_.length(*world_.find(role::packet, packet));
        if (length == 0 || length > LONGEST) return;
        call(op::kel_set_data,
             {recorder::variable(packet), start, start, data_of(length), recorder::number(length)});
    } else if (buffer >= 0) {
        const std::uint32_t length = world_.chain_length(out_.number_of(buffer));
        if (length == 0 || length > LONGEST) return;
        call(op::kel_buf_set_data,
             {recorder::variable(buffer), start, data_of(length), recorder::number(length)});
    }
}

// Rather at what the call may have changed.
void generator::look_after(op which, std::int32_t packet)
{
    const object *looked_at = world_.find(role::packet, packet);
    const std::uint32_t length = world_.length(*looked_at);
    const bool moves_data = which == op::kel_coalesce || which == op::kel_set_data ||
                            which == op::kel_append || which == op::kel_prepend;
    if (moves_data && length > 0 && length < 20000 && chance_.chance(50)) {
        const flat_argument start = recorder::number(0);
        call(op::kel_get_data, {recorder::variable(packet), start, start, recorder::output(),
                                recorder::number(length)});
        return;
    }
    if (which >= op::kel_tlv_alloc && which < op::select && chance_.chance(70)) {
        look_at_tlvs(packet);
    } else {
        look_at_packet(packet);
    }
}

// One or all TLVs, by their list.
void generator::look_at_tlvs(std::int32_t name)
{
    const flat_argument out = recorder::output();
    const flat_argument itself = recorder::variable(name);
    const std::uint32_t number = out_.number_of(name);
    call(op::kel_tlv_get_head, {itself, out});
    std::uint32_t id = 0;
    out_.asked().kel_tlv_get_head(number, &id);
    for (int i = 0; id != 0 && i < 4; i++) {
        const flat_argument tlv = recorder::number(id);
        if (chance_.chance(70)) {
            call(op::kel_tlv_getdata, {itself, tlv, out, recorder::number(1024)});
        }
        if (chance_.chance(30)) call(op::kel_tlv_version_get, {itself, tlv, out});
        call(op::kel_tlv_get_next, {itself, tlv});
        out_.asked().kel_tlv_get_next(number, &id);
    }
}

void generator::look_at_packet(std::int32_t name)
{
    const flat_argument out = recorder::output();
    const flat_argument itself = recorder::variable(name);
    const object *packet = world_.find(role::packet, name);
    const std::uint32_t length = world_.length(*packet);
    switch (chance_.below(9)) {
    case 0:
        call(op::kel_get_length, {itself});
        break;
    case 1:
        call(op::kel_get_buf_count, {itself});
        break;
    case 2:
    case 3:
        call(op::kel_get_offset, {itself, recorder::number(chance_.below(4)), out});
        break;
    case 4:
    case 5:
        if (length == 0 || length > 20000) break;
        call(op::kel_get_data,
             {itself, recorder::number(0), recorder::number(0), out, recorder::number(length)});
        break;
    case 6:
        call(op::kel_head_space, {itself, out});
        break;
    case 7:
        look_at_tlvs(name);
        break;
    default: {
        constexpr std::uint32_t ALL = 0x3fffff;
        const scalar mask{ALL};
        call(op::kel_metadata_get, {out_.record({&mask, 1}), itself});
    }
    }
}

void generator::look_at_buffer(std::int32_t name)
{
    const flat_argument out = recorder::output();
    const flat_argument itself = recorder::variable(name);
    const std::uint32_t number = out_.number_of(name);
    const std::uint32_t length = world_.chain_length(number);
    switch (chance_.below(7)) {
    case 0:
        call(op::kel_buf_get_length, {itself, out});
        break;
    case 1:
        call(op::kel_buf_get_buf_count, {itself});
        break;
    case 2:
    case 3:
        if (length == 0 || length > 20000) break;
        call(op::kel_buf_get_data, {itself, recorder::number(0), out, recorder::number(length)});
        break;
    case 4:
        call(op::kel_buf_get_dptr, {itself, recorder::number(0), out, out});
        break;
    case 5:
        call(op::kel_buf_get_paddr_iov,
             {itself, out, recorder::number(world_.chain_count(number))});
        break;
    default:
        call(op::kel_buf_get_next, {itself});
    }
}

} // namespace explore
