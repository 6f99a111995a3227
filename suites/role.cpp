// SPDX-License-Identifier: MIT
//
// Sink roles: who receives the packets of a shared tag, and that ALWAYS and ACTIVE holders
// exclude each other. The first case prints what it finds and counts it; sinks are
// destroyed in the order of their array, then the source. The second one's frame destroys
// the active sink, then the always sink.
#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include "kelapi/bufgroup.h"
#include "kelapi/client.h"
#include "kelapi/metadata.h"
#include "kelapi/packet.h"
#include "kelapi/role.h"
#include "suites/case_helpers.h"

TEST_FILE(kel_role, basic)

namespace {

constexpr kel_tag SINK_TAG = 65534;
constexpr uint32_t QUEUE_DEPTH = 32;
constexpr uint32_t SINK_ATTEMPTS = 16;
constexpr uint32_t SINK_NAME_SIZE = 33;

struct sink_record {
    kel_client client;
    kel_bufgroup group; // 0: none
};

struct role_sinks {
    sink_record *always;
    sink_record *active;
};

constexpr int32_t NO_SINK = -1;

struct role_change {
    int32_t who; // position of the sink, or NO_SINK
    uint32_t role = 0;
    uint32_t expected_send = 0;
    uint32_t expected_receiver = 0; // where the send succeeds
    const char *label;
};

// Never reset: in a loop the first failure shows for good.
uint32_t role_failures = 0;

void count_failure(const char *what, uint32_t expected, uint32_t got)
{
    printf("%-7s : %s (expect(%u) got(%u))\n", "FAIL", what, expected, got);
    role_failures++;
}

void sink_destroy(sink_record *sink)
{
    if (!sink) {
        return;
    }
    if (sink->group) {
        kel_deregister_bufgroup(sink->client, sink->group);
    }
    if (sink->client) {
        kel_deregister_client(sink->client);
    }
    free(sink);
}

bool sink_add_group(sink_record *sink, const char *name, kel_bufgroup_thresholds *thresholds)
{
    uint32_t error = kel_register_bufgroup(sink->client, &sink->group, name);

    if (error) {
        printf("kel_register_bufgroup(%s): %d\n", name, static_cast<int>(error));
        sink->group = 0;
        return false;
    }
    error = kel_bufgroup_set_params(sink->client, sink->group, KEL_BUFGROUP_BUFFERS, thresholds,
                                    nullptr);
    if (error) {
        printf("kel_bufgroup_set_params(%s): %d\n", name, static_cast<int>(error));
        return false;
    }
    return true;
}

// For sink_destroy to release; null when it could not be set up. Without thresholds the
// sink has no group.
sink_record *sink_create(const char *name, uint32_t role, kel_bufgroup_thresholds *thresholds)
{
    sink_record *sink = static_cast<sink_record *>(malloc(sizeof(sink_record)));

    if (!sink) {
        return nullptr;
    }
    *sink = {};
    if (uint32_t error = kel_register_client(&sink->client, name, role, QUEUE_DEPTH)) {
        printf("kel_register_client(%s): %d\n", name, static_cast<int>(error));
        sink_destroy(sink);
        return nullptr;
    }
    if (thresholds && !sink_add_group(sink, name, thresholds)) {
        sink_destroy(sink);
        return nullptr;
    }
    return sink;
}

// Sends the packet; it stays the sender's when that fails.
uint32_t sink_send_packet(const sink_record *source, kel_packet packet)
{
    if (uint32_t error = kel_set_tag(packet, SINK_TAG)) return error;
    return kel_send(source->client, packet);
}

uint32_t sink_send(const sink_record *source)
{
    uint32_t error = UINT32_MAX;
    kel_packet packet = kel_get_packet(source->client, source->group, STANDARD_SIZE, 1, &error);

    if (!packet) {
        return error;
    }
    error = sink_send_packet(source, packet);
    if (error) {
        kel_free_packet(packet);
    }
    return error;
}

void sink_recv_check(sink_record *const *sinks, uint32_t expected)
{
    for (uint32_t position = 0; sinks[position]; position++) {
        kel_packet packet = kel_recv(sinks[position]->client);
        if (!packet) {
            continue;
        }
        if (position != expected) {
            count_failure("recv", expected, position);
        }
        kel_free_packet(packet);
        return;
    }
    puts("FAIL: No sinks received the packet!"); // not counted
}

void role_step(const sink_record *source, sink_record *const *sinks, const role_change &step)
{
    if (step.who != NO_SINK) {
        uint32_t error = kel_client_ha_role_notify(sinks[step.who]->client, step.role);
        if (error) {
            count_failure("role change", 0, error);
        }
    }

    const uint32_t result = sink_send(source);
    if (result != step.expected_send) {
        count_failure(step.label, step.expected_send, result);
    }
    if (result == 0) {
        sink_recv_check(sinks, step.expected_receiver);
    }
}

// Fills the array up to the first failure and returns the number of sinks.
uint32_t create_sinks(sink_record **sinks)
{
    uint32_t count = 0;

    while (count < SINK_ATTEMPTS) {
        char name[SINK_NAME_SIZE];
        snprintf(name, sizeof(name), "sink%u", count);

        sink_record *sink = sink_create(name, KEL_ROLE_STANDBY, nullptr);
        if (!sink) {
            break;
        }
        if (kel_register_tag(sink->client, SINK_TAG)) {
            sink_destroy(sink);
            break;
        }
        sinks[count] = sink;
        count++;
    }
    return count;
}

void run_role_steps(const sink_record *source, sink_record *const *sinks)
{
    static const role_change removal[] = {
        {.who = NO_SINK, .expected_send = ENOENT, .label = "no active sink -- send should fail"},
        {.who = 5,
         .role = KEL_ROLE_ACTIVE,
         .expected_receiver = 5,
         .label = "sink 5 is active -- send should succeed"},
    };
    static const role_change precedence[] = {
        {.who = NO_SINK,
         .expected_send = ENOENT,
         .label = "active sink removed -- send should fail"},
        {.who = 6,
         .role = KEL_ROLE_ACTIVE,
         .expected_receiver = 6,
         .label = "sink 6 should take precedence, send"},
        {.who = 7,
         .role = KEL_ROLE_ACTIVE,
         .expected_receiver = 7,
         .label = "sink 7 should take precedence, send"},
        {.who = 7,
         .role = KEL_ROLE_STANDBY,
         .expected_receiver = 6,
         .label = "sink 6 should receive, send"},
        {.who = 6,
         .role = KEL_ROLE_STANDBY,
         .expected_send = ENOENT,
         .label = "no active sink -- send should fail"},
    };

    for (const role_change &step : removal) {
        role_step(source, sinks, step);
    }
    if (kel_deregister_tag(sinks[5]->client, SINK_TAG)) {
        puts("FAIL: deregistering tag"); // not counted
    }
    for (const role_change &step : precedence) {
        role_step(source, sinks, step);
    }
}

void check_sinks(const sink_record *source)
{
    sink_record *sinks[SINK_ATTEMPTS + 1] = {};
    const uint32_t count = create_sinks(sinks);

    if (count != KEL_SINKS_PER_TAG) {
        count_failure("registering clients", KEL_SINKS_PER_TAG, count);
    }
    if (count >= KEL_SINKS_PER_TAG) {
        run_role_steps(source, sinks);
    }
    for (uint32_t i = 0; i < count; i++) {
        sink_destroy(sinks[i]);
    }
}

void release(role_sinks &held)
{
    sink_destroy(held.active);
    sink_destroy(held.always);
}

constexpr case_frame<role_sinks> with_sinks = {nullptr, release};

} // namespace

// A source that cannot be created is no failure.
CASE(kel_role, basic, with_nothing)
{
    // Stays so for the rest of the run.
    setvbuf(stdout, nullptr, _IONBF, 0);

    kel_bufgroup_thresholds thresholds = {.max = 32, .low = 0, .high = 31};
    sink_record *source = sink_create("source", KEL_ROLE_STANDBY, &thresholds);
    if (source) {
        check_sinks(source);
        sink_destroy(source);
    }
    return role_failures == 0 ? nullptr : "FAIL";
}

CASE(kel_role, always, with_sinks)
{
    held.always = sink_create("sink_always", KEL_ROLE_ALWAYS, nullptr);
    if (!held.always) return "cannot allocate sink in ALWAYS";
    held.active = sink_create("sink_active", KEL_ROLE_ACTIVE, nullptr);
    if (!held.active) return "cannot allocate sink in ACTIVE";

    const kel_client always = held.always->client;
    const kel_client active = held.active->client;
    if (!kel_client_ha_role_notify(always, KEL_ROLE_ACTIVE)) {
        return "always sink shouldn't change to active";
    }
    if (!kel_client_ha_role_notify(active, KEL_ROLE_ALWAYS)) {
        return "active sink shouldn't change to always";
    }
    if (kel_register_tag(always, SINK_TAG)) return "cannot register always tag";
    if (kel_register_tag(active, SINK_TAG) != EEXIST) {
        return "shouldn't be able to register always + active";
    }
    if (kel_deregister_tag(always, SINK_TAG)) return "could not deregister tag";
    if (kel_register_tag(active, SINK_TAG)) return "could not register active tag";
    if (kel_register_tag(always, SINK_TAG) != EEXIST) {
        return "shouldn't be able to register active + always";
    }
    return nullptr;
}
