// SPDX-License-Identifier: MIT
//
// Packet metadata: length, tag, interface ids, offsets, the plain fields, the caller record
// and the group record.
#include <errno.h>
#include <inttypes.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "suites/packet_case.h"

TEST_FILE(kel_metadata, get_length_null_pkt)

namespace {

constexpr kel_packet BAD = KEL_BAD_HANDLE;
constexpr kel_tag TAG = 0x12345678;
constexpr uint64_t IFID = 0xabcdef01;
constexpr uint32_t BAD_IF_KIND = 4;
constexpr uint32_t BAD_OFFSET_KIND = 6;

const char *must_hold(bool condition, const char *message)
{
    return condition ? nullptr : message;
}

const char *must_fail(uint32_t error, const char *message)
{
    return error ? nullptr : message;
}

template <typename value> using getter = uint32_t (*)(kel_packet packet, value *result);

template <typename value> using setter = uint32_t (*)(kel_packet packet, value field);

// A getter that must refuse the packet.
template <typename value>
const char *bad_get(getter<value> get, kel_packet packet, const char *message)
{
    value field = 0;

    return must_fail(get(packet, &field), message);
}

// What is set must be read back; the getter's own result is not judged.
template <typename value>
const char *keeps(kel_packet packet, setter<value> set, getter<value> get, uint32_t expected,
                  const char *message)
{
    value field = 0;

    if (uint32_t error = set(packet, static_cast<value>(expected))) return error_text(error);
    get(packet, &field);
    return must_hold(field == expected, message);
}

// The same for the fields whose getter returns the value.
const char *keeps(kel_packet packet, setter<uint32_t> set, uint32_t (*get)(kel_packet packet),
                  uint32_t expected, const char *message)
{
    if (uint32_t error = set(packet, expected)) return error_text(error);
    return must_hold(get(packet) == expected, message);
}

const char *read_tag(kel_packet packet)
{
    kel_get_tag(packet); // any tag passes
    return nullptr;
}

} // namespace

CASE(kel_metadata, get_length_null_pkt, with_client,
     must_hold(!kel_get_length(0), "get_length was successful"))
CASE(kel_metadata, get_length_bad_pkt, with_client,
     must_hold(!kel_get_length(BAD), "get_length was successful"))
CASE(kel_metadata, get_length, with_packet,
     must_hold(kel_get_length(held.packet) == 1500, "get_length wrong size"))
CASE(kel_metadata, set_length_null_pkt, with_client,
     must_fail(kel_set_length(0, 0), "set_length was successful"))
CASE(kel_metadata, set_length_bad_pkt, with_client,
     must_fail(kel_set_length(BAD, 0), "set_length was successful"))
CASE(kel_metadata, set_length, with_packet,
     keeps(held.packet, kel_set_length, kel_get_length, 512, "set_length wrong size"))
CASE(kel_metadata, set_length_toobig, with_packet,
     must_fail(kel_set_length(held.packet, 9000), "set_length succeeded"))
CASE(kel_metadata, get_tag_null_pkt, with_client,
     must_hold(!kel_get_tag(0), "get_tag was successful"))
CASE(kel_metadata, get_tag_bad_pkt, with_client,
     must_hold(!kel_get_tag(BAD), "get_tag was successful"))
CASE(kel_metadata, get_tag, with_packet, read_tag(held.packet))
CASE(kel_metadata, set_tag_null_pkt, with_client,
     must_fail(kel_set_tag(0, TAG), "set_tag was successful"))
CASE(kel_metadata, set_tag_bad_pkt, with_client,
     must_fail(kel_set_tag(BAD, TAG), "set_tag was successful"))
CASE(kel_metadata, set_tag, with_packet,
     keeps(held.packet, kel_set_tag, kel_get_tag, TAG, "set_tag wrong tag"))

// Interface ids.

namespace {

uint32_t read_ifid(kel_packet packet, uint32_t kind)
{
    uint64_t id = 0;

    return kel_get_ifid(packet, kind, &id);
}

uint32_t write_ifid(kel_packet packet, uint32_t kind)
{
    return kel_set_ifid(packet, kind, IFID);
}

const char *const GET_IFID_TEXTS[] = {
    "get_ifid(input) successful", "get_ifid(output) successful",
    "get_ifid(input l2 logical) successful",
    "get_ifid(input l2 physcial) successful", // sic
};

const char *const SET_IFID_TEXTS[] = {
    "set_ifid(input) successful", "set_ifid(output) successful",
    "set_ifid(input l2 logical) successful",
    "set_ifid(input l2 physcial) successful", // sic
};

// Every kind must be refused, in the order of the texts.
const char *bad_ifids(uint32_t (*access)(kel_packet packet, uint32_t kind), kel_packet packet,
                      const char *const (&texts)[4])
{
    constexpr uint32_t KINDS[] = {IF_INPUT, IF_OUTPUT, IF_INPUT_L2_LOGICAL, IF_INPUT_L2_PHYSICAL};

    for (uint32_t i = 0; i < 4; i++) {
        if (access(packet, KINDS[i]) == 0) return texts[i];
    }
    return nullptr;
}

const char *keeps_ifid(kel_packet packet, uint32_t kind)
{
    uint64_t id = 0;

    if (uint32_t error = kel_set_ifid(packet, kind, IFID)) return error_text(error);
    if (uint32_t error = kel_get_ifid(packet, kind, &id)) return error_text(error);
    return must_hold(id == IFID, "wrong ifid");
}

} // namespace

CASE(kel_metadata, get_ifid_null_pkt, with_client, bad_ifids(read_ifid, 0, GET_IFID_TEXTS))
CASE(kel_metadata, get_ifid_bad_pkt, with_client, bad_ifids(read_ifid, BAD, GET_IFID_TEXTS))
CASE(kel_metadata, get_ifid_bad_iftype, with_packet,
     must_fail(read_ifid(held.packet, BAD_IF_KIND), "get_if successful"))
CASE(kel_metadata, get_ifid_in, with_packet, must_work(read_ifid(held.packet, IF_INPUT)))
CASE(kel_metadata, get_ifid_out, with_packet, must_work(read_ifid(held.packet, IF_OUTPUT)))
CASE(kel_metadata, get_ifid_inl2logical, with_packet,
     must_work(read_ifid(held.packet, IF_INPUT_L2_LOGICAL)))
CASE(kel_metadata, get_ifid_inl2physical, with_packet,
     must_work(read_ifid(held.packet, IF_INPUT_L2_PHYSICAL)))
CASE(kel_metadata, set_ifid_null_pkt, with_client, bad_ifids(write_ifid, 0, SET_IFID_TEXTS))
CASE(kel_metadata, set_ifid_bad_pkt, with_client, bad_ifids(write_ifid, BAD, SET_IFID_TEXTS))
CASE(kel_metadata, set_ifid_bad_iftype, with_packet,
     must_fail(write_ifid(held.packet, BAD_IF_KIND), "set_if successful"))
CASE(kel_metadata, set_ifid_in, with_packet, keeps_ifid(held.packet, IF_INPUT))
CASE(kel_metadata, set_ifid_out, with_packet, keeps_ifid(held.packet, IF_OUTPUT))
CASE(kel_metadata, set_ifid_inl2logical, with_packet, keeps_ifid(held.packet, IF_INPUT_L2_LOGICAL))
CASE(kel_metadata, set_ifid_inl2physical, with_packet,
     keeps_ifid(held.packet, IF_INPUT_L2_PHYSICAL))

// Offsets.

namespace {

uint32_t read_offset(kel_packet packet, uint32_t kind)
{
    uint32_t offset = 0;

    return kel_get_offset(packet, kind, &offset);
}

const char *offset_is(kel_packet packet, uint32_t kind, uint32_t expected, const char *message)
{
    uint32_t offset = 0;

    if (uint32_t error = kel_get_offset(packet, kind, &offset)) return error_text(error);
    return must_hold(offset == expected, message);
}

const char *keeps_offset(kel_packet packet, uint32_t kind)
{
    if (uint32_t error = kel_set_offset(packet, kind, 64)) return error_text(error);
    return offset_is(packet, kind, 64, "set_offset failed");
}

// From a fresh packet, whose offsets are 0.
const char *adjusts_up(kel_packet packet, uint32_t kind)
{
    if (uint32_t error = kel_adj_offset(packet, kind, 32)) return error_text(error);
    return offset_is(packet, kind, 32, "adj_offset failed");
}

const char *adjusts_down(kel_packet packet, uint32_t kind)
{
    if (uint32_t error = kel_set_offset(packet, kind, 64)) return error_text(error);
    if (uint32_t error = kel_adj_offset(packet, kind, -32)) return error_text(error);
    return offset_is(packet, kind, 32, "adj_offset failed");
}

const char *stays_positive(kel_packet packet, uint32_t kind)
{
    if (uint32_t error = kel_set_offset(packet, kind, 64)) return error_text(error);
    return must_fail(kel_adj_offset(packet, kind, -65), "adj_offset succeeded");
}

// An empty packet has no bound for its offsets.
const char *unbounded_when_empty(held_objects &held)
{
    if (uint32_t error = get_packet(held.client, 0, &held.packet)) return error_text(error);
    return must_hold(kel_set_offset(held.packet, OFFSET_APP, 1501) == 0, "set_offset failed");
}

} // namespace

CASE(kel_metadata, get_offset_null_pkt, with_client,
     must_fail(read_offset(0, OFFSET_NETWORK), "get_offset was successful"))
CASE(kel_metadata, get_offset_bad_pkt, with_client,
     must_fail(read_offset(BAD, OFFSET_NETWORK), "get_offset was successful"))
CASE(kel_metadata, get_offset_badtype, with_packet,
     must_fail(read_offset(held.packet, BAD_OFFSET_KIND), "get_offset was successful"))
CASE(kel_metadata, get_offset_null, with_packet,
     must_fail(kel_get_offset(held.packet, OFFSET_NETWORK, nullptr), "get_offset was successful"))
CASE(kel_metadata, get_offset_data, with_packet, must_work(read_offset(held.packet, OFFSET_DATA)))
CASE(kel_metadata, get_offset_network, with_packet,
     must_hold(!read_offset(held.packet, OFFSET_NETWORK), "get_offset failed"))
CASE(kel_metadata, get_offset_transport, with_packet,
     must_hold(!read_offset(held.packet, OFFSET_TRANSPORT), "get_offset failed"))
CASE(kel_metadata, get_offset_app, with_packet,
     must_hold(!read_offset(held.packet, OFFSET_APP), "get_offset failed"))
CASE(kel_metadata, set_offset_null_pkt, with_client,
     must_fail(kel_set_offset(0, OFFSET_NETWORK, 64), "set_offset was successful"))
CASE(kel_metadata, set_offset_bad_pkt, with_client,
     must_fail(kel_set_offset(BAD, OFFSET_NETWORK, 64), "set_offset was successful"))
CASE(kel_metadata, set_offset_badtype, with_packet,
     must_fail(kel_set_offset(held.packet, BAD_OFFSET_KIND, 64), "set_offset was successful"))
CASE(kel_metadata, set_offset_data, with_packet,
     must_fail(kel_set_offset(held.packet, OFFSET_DATA, 64), "set_offset was successful"))
CASE(kel_metadata, set_offset_network, with_packet, keeps_offset(held.packet, OFFSET_NETWORK))
CASE(kel_metadata, set_offset_transport, with_packet, keeps_offset(held.packet, OFFSET_TRANSPORT))
CASE(kel_metadata, set_offset_app, with_packet, keeps_offset(held.packet, OFFSET_APP))
CASE(kel_metadata, set_offset_network_toobig, with_packet,
     must_fail(kel_set_offset(held.packet, OFFSET_NETWORK, 1501), "set_offset succeeded"))
CASE(kel_metadata, set_offset_transport_toobig, with_packet,
     must_fail(kel_set_offset(held.packet, OFFSET_TRANSPORT, 1501), "set_offset succeeded"))
CASE(kel_metadata, set_offset_app_toobig, with_packet,
     must_fail(kel_set_offset(held.packet, OFFSET_APP, 1501), "set_offset succeeded"))
CASE(kel_metadata, set_offset_zero_data_len, with_client, unbounded_when_empty(held))
CASE(kel_metadata, adj_offset_null_pkt, with_client,
     must_fail(kel_adj_offset(0, OFFSET_NETWORK, 32), "adj_offset was successful"))
CASE(kel_metadata, adj_offset_bad_pkt, with_client,
     must_fail(kel_adj_offset(BAD, OFFSET_NETWORK, 32), "adj_offset was successful"))
CASE(kel_metadata, adj_offset_badtype, with_packet,
     must_fail(kel_adj_offset(held.packet, BAD_OFFSET_KIND, 32), "adj_offset was successful"))
CASE(kel_metadata, adj_offset_data, with_packet,
     must_fail(kel_adj_offset(held.packet, OFFSET_DATA, 32), "adj_offset was successful"))
CASE(kel_metadata, adj_offset_network, with_packet, adjusts_up(held.packet, OFFSET_NETWORK))
CASE(kel_metadata, adj_offset_transport, with_packet, adjusts_up(held.packet, OFFSET_TRANSPORT))
CASE(kel_metadata, adj_offset_app, with_packet, adjusts_up(held.packet, OFFSET_APP))
CASE(kel_metadata, adj_offset_network_toobig, with_packet,
     must_fail(kel_adj_offset(held.packet, OFFSET_NETWORK, 1501), "adj_offset succeeded"))
CASE(kel_metadata, adj_offset_transport_toobig, with_packet,
     must_fail(kel_adj_offset(held.packet, OFFSET_TRANSPORT, 1501), "adj_offset succeeded"))
CASE(kel_metadata, adj_offset_app_toobig, with_packet,
     must_fail(kel_adj_offset(held.packet, OFFSET_APP, 1501), "adj_offset succeeded"))
CASE(kel_metadata, adj_negoff_data, with_packet,
     must_fail(kel_adj_offset(held.packet, OFFSET_DATA, -32), "adj_offset was successful"))
CASE(kel_metadata, adj_negoff_network, with_packet, adjusts_down(held.packet, OFFSET_NETWORK))
CASE(kel_metadata, adj_negoff_transport, with_packet, adjusts_down(held.packet, OFFSET_TRANSPORT))
CASE(kel_metadata, adj_negoff_app, with_packet, adjusts_down(held.packet, OFFSET_APP))
CASE(kel_metadata, adj_negoff_network_toobig, with_packet,
     stays_positive(held.packet, OFFSET_NETWORK))
CASE(kel_metadata, adj_negoff_transport_toobig, with_packet,
     stays_positive(held.packet, OFFSET_TRANSPORT))
CASE(kel_metadata, adj_netoff_app_toobig, with_packet,
     stays_positive(held.packet, OFFSET_APP)) // sic

// Fields with a getter and a setter each.

CASE(kel_metadata, get_cause_null_pkt, with_client,
     bad_get(kel_get_cause, 0, "get_cause was successful"))
CASE(kel_metadata, get_cause_bad_pkt, with_client,
     bad_get(kel_get_cause, BAD, "get_cause was successful"))
CASE(kel_metadata, get_cause_null_ptr, with_packet,
     must_fail(kel_get_cause(held.packet, nullptr), "get_cause was successful"))
CASE(kel_metadata, set_cause_null_pkt, with_client,
     must_fail(kel_set_cause(0, 2), "set_cause was successful"))
CASE(kel_metadata, set_cause_bad_pkt, with_client,
     must_fail(kel_set_cause(BAD, 2), "set_cause was successful"))
CASE(kel_metadata, set_cause, with_packet,
     keeps(held.packet, kel_set_cause, kel_get_cause, 2, "set_cause wrong cause"))
CASE(kel_metadata, get_priority_null_pkt, with_client,
     bad_get(kel_get_priority, 0, "get_priority was successful"))
CASE(kel_metadata, get_priority_bad_pkt, with_client,
     bad_get(kel_get_priority, BAD, "get_priority was successful"))
CASE(kel_metadata, get_priority_null_ptr, with_packet,
     must_fail(kel_get_priority(held.packet, nullptr), "get_priority was successful"))
CASE(kel_metadata, set_priority_null_pkt, with_client,
     must_fail(kel_set_priority(0, 1), "set_priority was successful"))
CASE(kel_metadata, set_priority_bad_pkt, with_client,
     must_fail(kel_set_priority(BAD, 1), "set_priority was successful"))
CASE(kel_metadata, set_priority, with_packet,
     keeps(held.packet, kel_set_priority, kel_get_priority, 1, "set_priority wrong priority"))
CASE(kel_metadata, get_link_type_null_pkt, with_client,
     bad_get(kel_get_link_type, 0, "get_link_type was successful"))
CASE(kel_metadata, get_link_type_bad_pkt, with_client,
     bad_get(kel_get_link_type, BAD, "get_link_type was successful"))
CASE(kel_metadata, get_link_type_null_ptr, with_packet,
     must_fail(kel_get_link_type(held.packet, nullptr), "get_link_type was successful"))
CASE(kel_metadata, set_link_type_null_pkt, with_client,
     must_fail(kel_set_link_type(0, 4), "set_link_type was successful"))
CASE(kel_metadata, set_link_type_bad_pkt, with_client,
     must_fail(kel_set_link_type(BAD, 4), "set_link_type was successful"))
CASE(kel_metadata, set_link_type, with_packet,
     keeps(held.packet, kel_set_link_type, kel_get_link_type, 4, "set_link_type wrong link_type"))
CASE(kel_metadata, get_vrf_id_null_pkt, with_client,
     bad_get(kel_get_vrf_id, 0, "get_vrf_id was successful"))
CASE(kel_metadata, get_vrf_id_bad_pkt, with_client,
     bad_get(kel_get_vrf_id, BAD, "get_vrf_id was successful"))
CASE(kel_metadata, get_vrf_id_null_ptr, with_packet,
     must_fail(kel_get_vrf_id(held.packet, nullptr), "get_vrf_id was successful"))
CASE(kel_metadata, set_vrf_id_null_pkt, with_client,
     must_fail(kel_set_vrf_id(0, 3), "set_vrf_id was successful"))
CASE(kel_metadata, set_vrf_id_bad_pkt, with_client,
     must_fail(kel_set_vrf_id(BAD, 3), "set_vrf_id was successful"))
CASE(kel_metadata, set_vrf_id, with_packet,
     keeps(held.packet, kel_set_vrf_id, kel_get_vrf_id, 3, "set_vrf_id wrong vrf_id"))
CASE(kel_metadata, get_topology_id_null_pkt, with_client,
     bad_get(kel_get_topology_id, 0, "get_topology_id was successful"))
CASE(kel_metadata, get_topology_id_bad_pkt, with_client,
     bad_get(kel_get_topology_id, BAD, "get_topology_id was successful"))
CASE(kel_metadata, get_topology_id_null_ptr, with_packet,
     must_fail(kel_get_topology_id(held.packet, nullptr), "get_topology_id was successful"))
CASE(kel_metadata, set_topology_id_null_pkt, with_client,
     must_fail(kel_set_topology_id(0, 7), "set_topology_id was successful"))
CASE(kel_metadata, set_topology_id_bad_pkt, with_client,
     must_fail(kel_set_topology_id(BAD, 7), "set_topology_id was successful"))
CASE(kel_metadata, set_topology_id, with_packet,
     keeps(held.packet, kel_set_topology_id, kel_get_topology_id, 7,
           "set_topology_id wrong topology_id"))
CASE(kel_metadata, get_ingress_vlan_id_null_pkt, with_client,
     bad_get(kel_get_ingress_vlan_id, 0, "get_ingress_vlan_id was successful"))
CASE(kel_metadata, get_ingress_vlan_id_bad_pkt, with_client,
     bad_get(kel_get_ingress_vlan_id, BAD, "get_ingress_vlan_id was successful"))
CASE(kel_metadata, get_ingress_vlan_id_null_ptr, with_packet,
     must_fail(kel_get_ingress_vlan_id(held.packet, nullptr), "get_ingress_vlan_id was successful"))
CASE(kel_metadata, set_ingress_vlan_id_null_pkt, with_client,
     must_fail(kel_set_ingress_vlan_id(0, 10), "set_ingress_vlan_id was successful"))
CASE(kel_metadata, set_ingress_vlan_id_bad_pkt, with_client,
     must_fail(kel_set_ingress_vlan_id(BAD, 10), "set_ingress_vlan_id was successful"))
CASE(kel_metadata, set_ingress_vlan_id, with_packet,
     keeps(held.packet, kel_set_ingress_vlan_id, kel_get_ingress_vlan_id, 10,
           "set_ingress_vlan_id wrong vlan_id"))
CASE(kel_metadata, get_egress_vlan_id_null_pkt, with_client,
     bad_get(kel_get_egress_vlan_id, 0, "get_egress_vlan_id was successful"))
CASE(kel_metadata, get_egress_vlan_id_bad_pkt, with_client,
     bad_get(kel_get_egress_vlan_id, BAD, "get_egress_vlan_id was successful"))
CASE(kel_metadata, get_egress_vlan_id_null_ptr, with_packet,
     must_fail(kel_get_egress_vlan_id(held.packet, nullptr), "get_egress_vlan_id was successful"))
CASE(kel_metadata, set_egress_vlan_id_null_pkt, with_client,
     must_fail(kel_set_egress_vlan_id(0, 10), "set_egress_vlan_id was successful"))
CASE(kel_metadata, set_egress_vlan_id_bad_pkt, with_client,
     must_fail(kel_set_egress_vlan_id(BAD, 10), "set_egress_vlan_id was successful"))
CASE(kel_metadata, set_egress_vlan_id, with_packet,
     keeps(held.packet, kel_set_egress_vlan_id, kel_get_egress_vlan_id, 10,
           "set_egress_vlan_id wrong vlan_id"))

// The caller record.

namespace {

const char *check_caller(kel_packet packet)
{
    uint32_t pid = 0;
    uintptr_t pc = 0;

    if (uint32_t error = kel_get_caller(packet, &pid, &pc)) return error_text(error);
    printf("pid(%" PRIu32 ") pc(0x%" PRIxPTR ")\n", pid, pc);
    return must_hold(pid == static_cast<uint32_t>(getpid()), "pid mismatch");
}

} // namespace

CASE(kel_metadata, get_caller, with_packet, check_caller(held.packet))

// The group record.

namespace {

// Filled with ones first: kel_metadata_init must clear the mask.
void init_group(kel_metadata_group *group)
{
    memset(group, 0xff, sizeof(*group));
    kel_metadata_init(group);
}

const char *group_get_refused(kel_packet packet, const char *message)
{
    kel_metadata_group group;

    init_group(&group);
    group.mask |= KEL_METADATA_TAG;
    group.tag = TAG;
    return must_hold(kel_metadata_get(&group, packet) == EINVAL, message);
}

// Leaves the client in the record: the release frees the packet of a client that is gone, and
// deregisters the client again. The library must survive both.
const char *group_get_null(held_objects &held)
{
    const uint32_t error = kel_metadata_get(nullptr, held.packet);

    cleanup_client(held.client);
    return must_hold(error == EINVAL, "group_get_null_ptr did not fail");
}

// FIELD(name, member of the record, value) in the order in which they are compared.
#define GROUP_FIELDS(FIELD)                                                                        \
    FIELD(LENGTH, length, 1500)                                                                    \
    FIELD(TAG, tag, TAG)                                                                           \
    FIELD(CAUSE, cause, 2)                                                                         \
    FIELD(PRIORITY, priority, 1)                                                                   \
    FIELD(LINK_TYPE, link_type, 4)                                                                 \
    FIELD(VRF_ID, vrf_id, 3)                                                                       \
    FIELD(TOPOLOGY_ID, topology_id, 7)                                                             \
    FIELD(INGRESS_VLAN_ID, ingress_vlan_id, 10)                                                    \
    FIELD(EGRESS_VLAN_ID, egress_vlan_id, 10)                                                      \
    FIELD(DATA_START, data_start, 64)                                                              \
    FIELD(NETWORK_START, network_start, 64)                                                        \
    FIELD(TRANSPORT_START, transport_start, 64)                                                    \
    FIELD(APP_START, app_start, 64)                                                                \
    FIELD(DELTA, delta, 32)                                                                        \
    FIELD(IF_INPUT, if_input, IFID)                                                                \
    FIELD(IF_OUTPUT, if_output, IFID)                                                              \
    FIELD(IF_INPUT_L2_PHYSICAL, if_input_l2_physical, IFID)                                        \
    FIELD(IF_INPUT_L2_LOGICAL, if_input_l2_logical, IFID)

// Every field but the last opaque one.
constexpr uint32_t GROUP_MASK = 0x3effff;

// One entry more than the value of the highest bit of the mask, sic.
const char *failed_fields[KEL_METADATA_IF_INPUT_L2_LOGICAL + 1];
uint32_t failed_count;

void add_failed(const char *name)
{
    failed_fields[failed_count++] = name;
}

void check_fresh(const kel_metadata_group &group)
{
    memset(failed_fields, 0, sizeof(failed_fields));
    failed_count = 0;
    if (group.length != 1500) add_failed("dLENGTH");
    if (group.tag != 0) add_failed("dTAG");
}

void fill_group(kel_metadata_group *group)
{
#define FILL(name, member, value)                                                                  \
    group->mask |= KEL_METADATA_##name;                                                            \
    group->member = value;
    GROUP_FIELDS(FILL)
#undef FILL
}

void check_group(const kel_metadata_group &group)
{
#define CHECK(name, member, value)                                                                 \
    if (group.member != value) add_failed(#name);
    GROUP_FIELDS(CHECK)
#undef CHECK
}

// Null when no field failed, else a text that names the fields as far as there is room.
const char *failed_fields_message()
{
    static char message[200];
    uint32_t used;

    if (failed_count == 0) return nullptr;
    used = static_cast<uint32_t>(
        snprintf(message, sizeof(message), "GET errors on one or more fields: "));
    for (uint32_t i = 0; i < failed_count && sizeof(message) - used >= 2; i++) {
        const uint32_t room = static_cast<uint32_t>(sizeof(message)) - used;
        const uint32_t wanted =
            static_cast<uint32_t>(snprintf(message + used, room, "%s ", failed_fields[i]));

        used += wanted < room ? wanted : room - 1;
    }
    return message;
}

const char *access_fields(held_objects &held)
{
    kel_metadata_group group;

    init_group(&group);
    group.mask |= GROUP_MASK;
    if (get_default_packet(held.client, &held.packet)) return "get_default_packet failed";
    if (kel_metadata_get(&group, held.packet)) return "kel_metadata_get(default_packet) failed";
    check_fresh(group);
    fill_group(&group);
    if (kel_metadata_set(&group, held.packet)) return "kel_metadata_set(default_packet) failed";
    // A library that keeps the record's address, or stores nothing in it, is caught.
    memset(&group, 0, sizeof(group));
    group.mask = GROUP_MASK;
    if (kel_metadata_get(&group, held.packet)) return "kel_metadata_get(modified_packet) failed";
    check_group(group);
    return failed_fields_message();
}

} // namespace

CASE(kel_metadata, group_get_null_pkt, with_client,
     group_get_refused(0, "group_get_null_pkt did not fail"))
CASE(kel_metadata, group_get_bad_pkt, with_client,
     group_get_refused(BAD, "group_get_bad_pkt did not fail"))
CASE(kel_metadata, group_get_null_ptr, with_packet, group_get_null(held))
CASE(kel_metadata, group_access_fields, with_client, access_fields(held))
