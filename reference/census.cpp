// SPDX-License-Identifier: MIT
//
// Counts what lives, on request and when the process exits.

#include "reference/census.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "reference/state.h"

namespace kel_reference {

namespace {

kel_reference_census take(state &library)
{
    kel_reference_census taken{};
    const auto size = [](const auto &container) {
        return static_cast<std::uint32_t>(container.size());
    };
    library.clients.for_each([&](const client_object &client) {
        taken.events += size(client.events) + size(client.pending_events);
        taken.allocated_tags += size(client.allocated_tags);
        taken.tags += size(client.tags);
    });
    library.packets.for_each([&](const packet_object &packet) { taken.tlvs += size(packet.tlvs); });
    // A group without registrations is kept for the buffers that name it: those are counted.
    library.bufgroups.for_each([&](const bufgroup_object &group) {
        if (!group.registrations.empty()) taken.bufgroups++;
    });
    taken.clients = size(library.clients);
    taken.packets = size(library.packets);
    taken.buffers = size(library.buffers);
    taken.regions = size(library.regions);
    taken.subregions = size(library.subregions);
    taken.arena_bytes = library.memory.bytes_in_use();
    taken.released_by_deregistration = library.released_by_deregistration;
    return taken;
}

void print(std::FILE *file, const kel_reference_census &taken)
{
    const struct {
        const char *name;
        std::uint64_t count;
    } lines[] = {
        {"clients", taken.clients},
        {"packets", taken.packets},
        {"buffers", taken.buffers},
        {"bufgroups", taken.bufgroups},
        {"tags", taken.tags},
        {"allocated_tags", taken.allocated_tags},
        {"tlvs", taken.tlvs},
        {"events", taken.events},
        {"regions", taken.regions},
        {"subregions", taken.subregions},
        {"arena_bytes", taken.arena_bytes},
        {"released_by_deregistration", taken.released_by_deregistration},
    };
    for (const auto &line : lines) {
        std::fprintf(file, "%s %llu\n", line.name, static_cast<unsigned long long>(line.count));
    }
}

__attribute__((destructor)) void report()
{
    const char *path = std::getenv("KEL_REFERENCE_CENSUS");
    if (!path) return;
    kel_reference_census taken;
    kel_reference_take_census(&taken);
    const bool to_standard_error = std::strcmp(path, "-") == 0;
    std::FILE *file = to_standard_error ? stderr : std::fopen(path, "we");
    if (!file) return;
    print(file, taken);
    if (!to_standard_error) std::fclose(file);
}

} // namespace

} // namespace kel_reference

void kel_reference_take_census(kel_reference_census *census)
{
    kel_reference::locked_state library;
    *census = kel_reference::take(*library);
}
