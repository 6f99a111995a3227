// SPDX-License-Identifier: MIT
//
// Packet metadata, field by field and through the group record.

#include "tests/contract/contract.h"

#include <unistd.h>

#include <array>
#include <cstring>

using namespace contract;

namespace {

class metadata_contract : public contract::test {
protected:
    client owner = new_client();
    packet target = new_packet(owner);
    void TearDown() override
    {
        EXPECT_OK(kel_free_packet(target.give()));
        EXPECT_OK(kel_deregister_client(owner.give()));
        contract::test::TearDown();
    }
};

constexpr std::uint32_t ALL_KNOWN = 0x3effff;
constexpr std::uint32_t WRITABLE_OFFSETS[] = {OFFSET_NETWORK, OFFSET_TRANSPORT, OFFSET_APP};
constexpr std::uint32_t IF_KINDS[] = {IF_INPUT, IF_OUTPUT, IF_INPUT_L2_PHYSICAL,
                                      IF_INPUT_L2_LOGICAL};
constexpr kel_packet BAD_PACKETS[] = {0, KEL_BAD_HANDLE};

TEST_F(metadata_contract, length)
{
    EXPECT_EQ(kel_get_length(target), 1500u);
    EXPECT_OK(kel_set_length(target, 512));
    EXPECT_EQ(kel_get_length(target), 512u);
    EXPECT_EQ(chain_length(kel_get_buf_head(target)), 512u);
    EXPECT_ERROR(kel_set_length(target, 9000), ERANGE);
    EXPECT_EQ(kel_get_length(target), 512u);
    EXPECT_OK(kel_set_length(target, 0));
    EXPECT_EQ(kel_get_length(target), 0u);
    for (const kel_packet bad : BAD_PACKETS) {
        EXPECT_EQ(kel_get_length(bad), 0u);
        EXPECT_ERROR(kel_set_length(bad, 512), EINVAL);
    }
}

TEST_F(metadata_contract, length_of_a_chain)
{
    const packet spread = new_packet(owner, 32768, 0);
    write(spread, pattern(32768));
    ASSERT_OK(kel_set_length(spread, 10'000));
    EXPECT_EQ(read(spread), part(pattern(32768), 0, 10'000));
    EXPECT_EQ(chain_length(kel_get_buf_head(spread)), 10'000u);
}

TEST_F(metadata_contract, tag)
{
    EXPECT_EQ(kel_get_tag(target), 0u);
    EXPECT_OK(kel_set_tag(target, 0x12345678));
    EXPECT_EQ(kel_get_tag(target), 0x12345678u);
    for (const kel_packet bad : BAD_PACKETS) {
        EXPECT_EQ(kel_get_tag(bad), 0u);
        EXPECT_ERROR(kel_set_tag(bad, 1), EINVAL);
    }
}

TEST_F(metadata_contract, interface_ids_keep_64_bits)
{
    for (const std::uint32_t kind : IF_KINDS) {
        std::uint64_t id = 0;
        EXPECT_OK(kel_get_ifid(target, kind, &id));
        for (const std::uint64_t written :
             {0x00000000abcdef01ull, 0xabcdef0100000000ull, 0xfedcba9876543210ull + kind}) {
            EXPECT_OK(kel_set_ifid(target, kind, written));
            EXPECT_OK(kel_get_ifid(target, kind, &id));
            EXPECT_EQ(id, written);
        }
        EXPECT_ERROR(kel_get_ifid(target, kind, nullptr), EINVAL);
    }
    for (const std::uint32_t kind : IF_KINDS) {
        std::uint64_t id = 0;
        EXPECT_OK(kel_get_ifid(target, kind, &id));
        EXPECT_EQ(id, 0xfedcba9876543210ull + kind) << "kinds share their place";
    }
    EXPECT_EQ(kel_get_input_ifid(target), 0xfedcba9876543210ull);
    EXPECT_EQ(kel_get_input_ifid(KEL_BAD_HANDLE), 0u);
}

TEST_F(metadata_contract, unknown_interface_kinds)
{
    std::uint64_t id = 4711;
    for (const std::uint32_t kind : {4u, 5u, 0xffffffffu}) {
        EXPECT_ERROR(kel_get_ifid(target, kind, &id), EINVAL);
        EXPECT_ERROR(kel_set_ifid(target, kind, 1), EINVAL);
    }
    for (const kel_packet bad : BAD_PACKETS) {
        EXPECT_ERROR(kel_get_ifid(bad, IF_INPUT, &id), EINVAL);
        EXPECT_ERROR(kel_set_ifid(bad, IF_INPUT, 1), EINVAL);
    }
    EXPECT_EQ(id, 4711u);
}

TEST_F(metadata_contract, offsets_are_independent)
{
    std::uint32_t offset = 4711;
    EXPECT_OK(kel_get_offset(target, OFFSET_DATA, &offset));
    EXPECT_EQ(offsets_of(target), offsets{});
    EXPECT_OK(kel_set_offset(target, OFFSET_NETWORK, 64));
    EXPECT_EQ(offsets_of(target), (offsets{64, 0, 0}));
    EXPECT_OK(kel_set_offset(target, OFFSET_APP, 32));
    EXPECT_EQ(offsets_of(target), (offsets{64, 0, 32}));
    EXPECT_OK(kel_set_offset(target, OFFSET_TRANSPORT, 1499));
    EXPECT_EQ(offsets_of(target), (offsets{64, 1499, 32}));
}

TEST_F(metadata_contract, data_offset_is_not_set_singly)
{
    EXPECT_ERROR(kel_set_offset(target, OFFSET_DATA, 64), EINVAL);
    EXPECT_ERROR(kel_adj_offset(target, OFFSET_DATA, 32), EINVAL);
    EXPECT_ERROR(kel_adj_offset(target, OFFSET_DATA, -32), EINVAL);
    std::uint32_t offset = 4711;
    EXPECT_OK(kel_get_offset(target, OFFSET_DATA, &offset));
    EXPECT_EQ(offset, 0u);
}

TEST_F(metadata_contract, offsets_are_bound_by_the_length)
{
    const packet header(kel_get_pkthdr(owner));
    for (const std::uint32_t kind : WRITABLE_OFFSETS) {
        EXPECT_ERROR(kel_set_offset(target, kind, 1501), ERANGE);
        EXPECT_OK(kel_set_offset(header, kind, 1501)) << "a packet without length has no bound";
    }
    EXPECT_EQ(offsets_of(target), offsets{});
    ASSERT_OK(kel_set_length(target, 0));
    EXPECT_OK(kel_set_offset(target, OFFSET_APP, 1501));
}

TEST_F(metadata_contract, adjusted_offsets)
{
    for (const std::uint32_t kind : WRITABLE_OFFSETS) {
        std::uint32_t offset = 4711;
        EXPECT_OK(kel_adj_offset(target, kind, 32));
        EXPECT_OK(kel_get_offset(target, kind, &offset));
        EXPECT_EQ(offset, 32u);
        EXPECT_OK(kel_set_offset(target, kind, 64));
        EXPECT_ERROR(kel_adj_offset(target, kind, -65), ERANGE);
        EXPECT_OK(kel_adj_offset(target, kind, -32));
        EXPECT_OK(kel_get_offset(target, kind, &offset));
        EXPECT_EQ(offset, 32u);
        EXPECT_OK(kel_adj_offset(target, kind, -32));
        EXPECT_ERROR(kel_adj_offset(target, kind, 1501), ERANGE);
        EXPECT_ERROR(kel_adj_offset(target, kind, INT32_MAX), ERANGE);
        EXPECT_ERROR(kel_adj_offset(target, kind, INT32_MIN), ERANGE);
        EXPECT_OK(kel_get_offset(target, kind, &offset));
        EXPECT_EQ(offset, 0u);
    }
}

TEST_F(metadata_contract, unknown_offset_kinds)
{
    std::uint32_t offset = 0;
    for (const std::uint32_t kind : {6u, 48879u, 0xffffffffu}) {
        EXPECT_ERROR(kel_get_offset(target, kind, &offset), EINVAL);
        EXPECT_ERROR(kel_set_offset(target, kind, 64), EINVAL);
        EXPECT_ERROR(kel_adj_offset(target, kind, 32), EINVAL);
    }
    for (const kel_packet bad : BAD_PACKETS) {
        EXPECT_ERROR(kel_get_offset(bad, OFFSET_APP, &offset), EINVAL);
        EXPECT_ERROR(kel_set_offset(bad, OFFSET_APP, 64), EINVAL);
        EXPECT_ERROR(kel_adj_offset(bad, OFFSET_APP, 32), EINVAL);
    }
    EXPECT_ERROR(kel_get_offset(target, OFFSET_APP, nullptr), EINVAL);
}

// The fields that have nothing but a getter and a setter.
template <class Value, std::uint32_t (*get)(kel_packet, Value *),
          std::uint32_t (*set)(kel_packet, Value), Value written>
struct field {
    using value = Value;
    static constexpr auto getter = get;
    static constexpr auto setter = set;
    static constexpr Value sample = written;
};

template <class Field> class field_contract : public metadata_contract {
};

using fields =
    testing::Types<field<std::uint32_t, kel_get_cause, kel_set_cause, 2>,
                   field<std::uint16_t, kel_get_priority, kel_set_priority, 1>,
                   field<std::uint16_t, kel_get_link_type, kel_set_link_type, 4>,
                   field<std::uint32_t, kel_get_vrf_id, kel_set_vrf_id, 3>,
                   field<std::uint32_t, kel_get_topology_id, kel_set_topology_id, 7>,
                   field<std::uint16_t, kel_get_ingress_vlan_id, kel_set_ingress_vlan_id, 10>,
                   field<std::uint16_t, kel_get_egress_vlan_id, kel_set_egress_vlan_id, 10>>;
TYPED_TEST_SUITE(field_contract, fields);

TYPED_TEST(field_contract, is_read_back_in_its_width)
{
    using value = typename TypeParam::value;
    const value largest = static_cast<value>(-1);
    for (const value written : {TypeParam::sample, largest, value{0}}) {
        EXPECT_OK(TypeParam::setter(this->target, written));
        std::array<value, 3> around{0x5a, 0x5a, 0x5a};
        EXPECT_OK(TypeParam::getter(this->target, &around[1]));
        EXPECT_EQ(around, (std::array<value, 3>{0x5a, written, 0x5a}));
    }
}

TYPED_TEST(field_contract, refusals)
{
    typename TypeParam::value value = 0x5a;
    for (const kel_packet bad : BAD_PACKETS) {
        EXPECT_ERROR(TypeParam::getter(bad, &value), EINVAL);
        EXPECT_ERROR(TypeParam::setter(bad, 1), EINVAL);
    }
    EXPECT_ERROR(TypeParam::getter(this->target, nullptr), EINVAL);
    EXPECT_EQ(value, 0x5a);
}

kel_metadata_group record_of(kel_packet source, std::uint32_t mask)
{
    kel_metadata_group record;
    kel_metadata_init(&record);
    EXPECT_EQ(record.mask, 0u);
    record.mask |= mask;
    EXPECT_OK(kel_metadata_get(&record, source));
    return record;
}

kel_metadata_group sample_record(kel_packet source)
{
    kel_metadata_group record = record_of(source, ALL_KNOWN);
    record.data_start = record.network_start = record.transport_start = record.app_start = 64;
    record.length = 1500;
    record.tag = 0x12345678;
    record.cause = 2;
    record.priority = 1;
    record.link_type = 4;
    record.vrf_id = 3;
    record.topology_id = 7;
    record.ingress_vlan_id = record.egress_vlan_id = 10;
    record.delta = 32;
    record.if_input = record.if_output = 0x00000000abcdef01;
    record.if_input_l2_physical = record.if_input_l2_logical = 0x00000000abcdef01;
    return record;
}

TEST_F(metadata_contract, fresh_packet_through_the_record)
{
    const kel_metadata_group record = record_of(target, ALL_KNOWN);
    EXPECT_EQ(record.length, 1500u);
    EXPECT_EQ(record.tag, 0u);
    EXPECT_EQ(record.network_start, 0u);
    EXPECT_EQ(record.transport_start, 0u);
    EXPECT_EQ(record.app_start, 0u);
}

TEST_F(metadata_contract, record_is_read_back_whole)
{
    const kel_metadata_group written = sample_record(target);
    kel_metadata_group passed = written;
    ASSERT_OK(kel_metadata_set(&passed, target));
    EXPECT_EQ(std::memcmp(&passed, &written, sizeof written), 0) << "set wrote to the record";
    const kel_metadata_group read_back = record_of(target, ALL_KNOWN);
    EXPECT_EQ(std::memcmp(&read_back, &written, sizeof written), 0);
}

TEST_F(metadata_contract, record_writes_what_reads_differently)
{
    kel_metadata_group written = sample_record(target);
    written.length = 512;
    written.opaque_1++;
    written.opaque_2 += 2;
    written.opaque_3 += 3;
    ASSERT_OK(kel_metadata_set(&written, target));
    const kel_metadata_group read_back = record_of(target, ALL_KNOWN);
    EXPECT_EQ(std::memcmp(&read_back, &written, sizeof written), 0);
    EXPECT_EQ(kel_get_length(target), 512u);
    EXPECT_EQ(chain_length(kel_get_buf_head(target)), 512u);
}

TEST_F(metadata_contract, record_and_single_fields_are_the_same)
{
    kel_metadata_group record = sample_record(target);
    ASSERT_OK(kel_metadata_set(&record, target));
    EXPECT_EQ(kel_get_tag(target), 0x12345678u);
    EXPECT_EQ(kel_get_length(target), 1500u);
    EXPECT_EQ(offsets_of(target), (offsets{64, 64, 64}));
    std::uint32_t number = 0;
    std::uint16_t short_number = 0;
    EXPECT_OK(kel_get_offset(target, OFFSET_DATA, &number));
    EXPECT_EQ(number, 64u);
    EXPECT_OK(kel_get_topology_id(target, &number));
    EXPECT_EQ(number, 7u);
    EXPECT_OK(kel_get_link_type(target, &short_number));
    EXPECT_EQ(short_number, 4u);
    EXPECT_EQ(kel_get_input_ifid(target), 0xabcdef01u);

    ASSERT_OK(kel_set_cause(target, 99));
    ASSERT_OK(kel_set_egress_vlan_id(target, 98));
    ASSERT_OK(kel_set_ifid(target, IF_INPUT_L2_LOGICAL, 0xfedcba9876543210));
    record = record_of(target, ALL_KNOWN);
    EXPECT_EQ(record.cause, 99u);
    EXPECT_EQ(record.egress_vlan_id, 98u);
    EXPECT_EQ(std::uint64_t{record.if_input_l2_logical}, 0xfedcba9876543210u);
}

// Where each field stands, in the order of the mask's bits.
struct record_field {
    std::size_t offset;
    std::size_t size;
};
constexpr record_field RECORD_FIELDS[] = {{4, 4},  {8, 4},  {12, 4}, {16, 2}, {18, 2}, {20, 4},
                                          {24, 4}, {28, 2}, {30, 2}, {32, 4}, {36, 4}, {40, 4},
                                          {44, 4}, {48, 4}, {52, 4}, {56, 4}, {60, 4}, {64, 4},
                                          {68, 8}, {76, 8}, {84, 8}, {92, 8}};

TEST_F(metadata_contract, fields_without_their_bit_are_left_alone)
{
    kel_metadata_group full = sample_record(target);
    ASSERT_OK(kel_metadata_set(&full, target));
    for (std::uint32_t bit = 0; bit < std::size(RECORD_FIELDS); bit++) {
        SCOPED_TRACE(bit);
        kel_metadata_group record;
        std::memset(&record, 0x5a, sizeof record);
        record.mask = 1u << bit;
        ASSERT_OK(kel_metadata_get(&record, target));

        kel_metadata_group expected;
        std::memset(&expected, 0x5a, sizeof expected);
        expected.mask = 1u << bit;
        const auto &[offset, size] = RECORD_FIELDS[bit];
        const bool is_known = (ALL_KNOWN >> bit) & 1;
        auto *bytes_of_expected = reinterpret_cast<std::uint8_t *>(&expected);
        const auto *source = reinterpret_cast<const std::uint8_t *>(is_known ? &full : &record);
        std::memcpy(bytes_of_expected + offset, source + offset, size);
        EXPECT_EQ(std::memcmp(&record, &expected, sizeof record), 0);

        // Nothing but the selected field is written: the others stay as they are.
        std::memset(&record, 0, sizeof record);
        std::memcpy(reinterpret_cast<std::uint8_t *>(&record) + offset, source + offset, size);
        record.mask = 1u << bit;
        ASSERT_OK(kel_metadata_set(&record, target));
        const kel_metadata_group after = record_of(target, ALL_KNOWN);
        EXPECT_EQ(std::memcmp(&after, &full, sizeof after), 0);
    }
}

// What the record was given, it takes back: an offset may lie beyond a length that has shrunk.
TEST_F(metadata_contract, record_just_read_is_accepted)
{
    kel_metadata_group record = sample_record(target);
    record.data_start = record.network_start = record.transport_start = record.app_start = 1400;
    ASSERT_OK(kel_metadata_set(&record, target));
    const auto is_accepted = [&](kel_packet asked) {
        kel_metadata_group read = record_of(asked, ALL_KNOWN);
        EXPECT_OK(kel_metadata_set(&read, asked));
    };
    const packet shortened(kel_duplicate(target, OFFSET_DATA, 0, 100, nullptr));
    is_accepted(shortened);
    ASSERT_OK(kel_reserve_space(target, 200));
    is_accepted(target);
    ASSERT_OK(kel_set_length(target, 512));
    is_accepted(target);
    ASSERT_OK(kel_trim_tail(target, 500));
    is_accepted(target);
    EXPECT_EQ(offsets_of(target), (offsets{1400, 1400, 1400}));

    record = record_of(target, ALL_KNOWN);
    record.app_start = 1399;
    EXPECT_ERROR(kel_metadata_set(&record, target), ERANGE) << "not the packet's, and beyond it";
}

TEST_F(metadata_contract, refused_records)
{
    kel_metadata_group record = record_of(target, ALL_KNOWN);
    for (const kel_packet bad : BAD_PACKETS) {
        EXPECT_ERROR(kel_metadata_get(&record, bad), EINVAL);
        EXPECT_ERROR(kel_metadata_set(&record, bad), EINVAL);
    }
    EXPECT_ERROR(kel_metadata_get(nullptr, target), EINVAL);
    EXPECT_ERROR(kel_metadata_set(nullptr, target), EINVAL);
    kel_metadata_init(nullptr);

    record.tag = 4711;
    record.length = 9000;
    EXPECT_ERROR(kel_metadata_set(&record, target), ERANGE);
    record.length = 1500;
    record.app_start = 1501;
    EXPECT_ERROR(kel_metadata_set(&record, target), ERANGE);
    EXPECT_EQ(kel_get_tag(target), 0u) << "a refused record was written in part";
    EXPECT_EQ(kel_get_length(target), 1500u);
}

TEST_F(metadata_contract, caller)
{
    std::uint32_t pid = 0;
    std::uintptr_t pc = 0;
    EXPECT_OK(kel_get_caller(target, &pid, &pc));
    EXPECT_EQ(pid, static_cast<std::uint32_t>(getpid()));
    EXPECT_NE(pc, 0u);
    EXPECT_ERROR(kel_get_caller(target, nullptr, &pc), EINVAL);
    EXPECT_ERROR(kel_get_caller(target, &pid, nullptr), EINVAL);
    for (const kel_packet bad : BAD_PACKETS) {
        EXPECT_ERROR(kel_get_caller(bad, &pid, &pc), EINVAL);
    }
}

} // namespace
