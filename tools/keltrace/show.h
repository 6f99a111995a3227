// SPDX-License-Identifier: MIT
//
// Arguments and results as a trace shows them, by their form.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tools/keltrace/operations.h"
#include "tools/keltrace/trace.h"

namespace keltrace {

// A number; `value` holds it in 64 bits, with its sign extended.
void show_number(trace_line &line, form shown, std::uint64_t value);

// What an address that is not null names; one function a kind of record.
void show_target(trace_line &line, const char *text);
void show_target(trace_line &line, const kel_event *event);
void show_target(trace_line &line, const kel_bufgroup_thresholds *thresholds);
void show_target(trace_line &line, const timeval *timeout);
void show_target(trace_line &line, const kel_metadata_group *metadata);
void show_target(trace_line &line, const kel_packet_list *list);
void show_target(trace_line &line, const kel_buffer_list *list);
void show_target(trace_line &line, const kel_iovec *entries);

void show_bytes(trace_line &line, const void *bytes, std::size_t count);

} // namespace keltrace
