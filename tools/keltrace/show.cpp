// SPDX-License-Identifier: MIT
//
// The forms of numbers and records.
#include "tools/keltrace/show.h"

#include <algorithm>
#include <iterator>

#include "tools/common/error_names.h"
#include "tools/keltrace/numbers.h"

namespace keltrace {

namespace {

using long_number = unsigned long long;

// Kinds are small numbers from 0; others are shown as they are.
template <std::size_t Count>
void show_kind(trace_line &line, const char *const (&names)[Count], std::uint64_t value)
{
    if (value < Count) {
        line.add("%s", names[value]);
    } else {
        line.add("%llu", static_cast<long_number>(value));
    }
}

void show_error(trace_line &line, std::uint64_t value)
{
    if (const char *name = tools::known_error_name(value)) {
        line.add("%s", name);
    } else {
        line.add("%llu", static_cast<long_number>(value));
    }
}

} // namespace

void show_number(trace_line &line, form shown, std::uint64_t value)
{
    static constexpr const char *ROLES[] = {"ALWAYS", "ACTIVE", "STANDBY"};
    static constexpr const char *INTERFACES[] = {"IF_INPUT", "IF_OUTPUT", "IF_INPUT_L2_PHYSICAL",
                                                 "IF_INPUT_L2_LOGICAL"};
    static constexpr const char *OFFSETS[] = {"OFFSET_DATA", "OFFSET_NETWORK", "OFFSET_TRANSPORT",
                                              "OFFSET_APP"};
    static constexpr const char *GROUP_FLAGS[] = {"0", "LOW", "HIGH", "LOW|HIGH"};
    switch (shown) {
    case form::error:
        show_error(line, value);
        break;
    case form::role:
        show_kind(line, ROLES, value);
        break;
    case form::interface_kind:
        show_kind(line, INTERFACES, value);
        break;
    case form::offset_kind:
        show_kind(line, OFFSETS, value);
        break;
    case form::group_flags:
        show_kind(line, GROUP_FLAGS, value);
        break;
    case form::handle:
    case form::hexadecimal:
    case form::address:
        if (value == 0) {
            line.add("0");
        } else {
            line.add("0x%llx", static_cast<long_number>(value));
        }
        break;
    default:
        line.add("%lld", static_cast<long long>(value));
        break;
    }
}

void show_target(trace_line &line, const char *text)
{
    line.add("\"%.40s\"", text);
}

void show_target(trace_line &line, const kel_event *event)
{
    static constexpr const char *TYPES[] = {"NONE", "ALL", "TAG", "BUFGROUP", "TAG_REGISTERED"};
    line.add("{");
    show_kind(line, TYPES, event->type);
    line.add(" flags 0x%x object 0x%x group_flags %u context 0x%x 0x%x}", event->flags,
             event->object, event->group_flags, event->context1, event->context2);
}

void show_target(trace_line &line, const kel_bufgroup_thresholds *thresholds)
{
    line.add("{max %u low %u high %u}", thresholds->max, thresholds->low, thresholds->high);
}

void show_target(trace_line &line, const timeval *timeout)
{
    line.add("{%lld.%06lld s}", static_cast<long long>(timeout->tv_sec),
             static_cast<long long>(timeout->tv_usec));
}

void show_target(trace_line &line, const kel_metadata_group *metadata)
{
    line.add("{mask 0x%x length %u tag 0x%x}", metadata->mask, metadata->length, metadata->tag);
}

void show_target(trace_line &line, const kel_packet_list *list)
{
    line.add("{count %u allocated %u}", list->count, list->allocated);
}

void show_target(trace_line &line, const kel_buffer_list *list)
{
    line.add("{allocated %u}", list->allocated);
}

void show_target(trace_line &line, const kel_iovec *entries)
{
    line.add("{0x%llx %u, ..}", static_cast<long_number>(entries->iov_base), entries->iov_len);
}

void show_bytes(trace_line &line, const void *bytes, std::size_t count)
{
    constexpr std::size_t SHOWN = 8;
    const auto *byte = static_cast<const unsigned char *>(bytes);
    line.add("<");
    for (std::size_t i = 0; i < std::min(count, SHOWN); ++i) {
        line.add(i == 0 ? "%02x" : " %02x", byte[i]);
    }
    line.add(count > SHOWN ? " ..>" : ">");
}

} // namespace keltrace
