// SPDX-License-Identifier: MIT
#include "tools/explore/world.h"

#include <algorithm>
#include <cerrno>

namespace explore {

void world::clear()
{
    for (std::vector<object> &each : objects_) each.clear();
    last_.fill(-1);
    chains_ = 0;
}

object &world::add(const given_object &given)
{
    object made;
    made.name = given.name;
    made.what = given.what;
    made.number = given.number;
    std::vector<object> &into = all(given.what);
    into.push_back(made);
    return into.back();
}

object *world::find(role what, std::int32_t name)
{
    for (object &each : all(what)) {
        if (each.name == name) return &each;
    }
    return nullptr;
}

bool world::is_live(const object &one) const
{
    const kel_functions &kel = made_.asked();
    std::uint32_t ignored = 0;
    switch (one.what) {
    case role::client:
        return kel.kel_queue_is_empty(one.number) <= 1;
    case role::packet:
        return kel.kel_get_buf_count(one.number) != ~0U;
    case role::buffer:
        return kel.kel_buf_get_length(one.number, &ignored) == 0;
    default:
        return true;
    }
}

std::size_t world::count_live(role what)
{
    return static_cast<std::size_t>(
        std::ranges::count_if(all(what), [this](const object &each) { return is_live(each); }));
}

bool world::is_registered(const object &group, const object &client) const
{
    std::uint32_t buffers = 0;
    std::uint32_t bytes = 0;
    return made_.asked().kel_get_count_bygroup(client.number, group.number, &buffers, &bytes) == 0;
}

std::uint32_t world::length(const object &packet) const
{
    return made_.asked().kel_get_length(packet.number);
}

std::uint32_t world::head_room(const object &packet) const
{
    std::uint32_t room = 0;
    made_.asked().kel_head_space(packet.number, &room);
    return room;
}

std::uint32_t world::first_length(const object &packet) const
{
    return buffer_length(made_.asked().kel_get_buf_head(packet.number));
}

std::uint32_t world::buffer_length(std::uint32_t buffer) const
{
    std::uint32_t length = 0;
    made_.asked().kel_buf_get_length(buffer, &length);
    return length;
}

std::uint32_t world::chain_length(std::uint32_t buffer) const
{
    std::uint32_t total = 0;
    for (; buffer != 0; buffer = made_.asked().kel_buf_get_next(buffer)) {
        total += buffer_length(buffer);
    }
    return total;
}

std::uint32_t world::chain_count(std::uint32_t buffer) const
{
    return made_.asked().kel_buf_get_buf_count(buffer);
}

bool world::is_held(std::uint32_t tag) const
{
    return made_.asked().kel_is_tag_registered(0, tag) != 0;
}

bool world::is_queue_empty(const object &client) const
{
    return made_.asked().kel_queue_is_empty(client.number) == 1;
}

} // namespace explore
