// SPDX-License-Identifier: MIT
//
// The table of calls, made from the list of operations when it is first asked for.
#include "tools/sequence/schema.h"

#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <deque>
#include <string>

#include "kelapi/kel.h"

namespace sequence {

namespace {

using interface::argument_kind;
using interface::direction;
using interface::form;
using interface::object;

constexpr const char *OWN_MEMORY = "the size of the buffer memory is the library's own";
constexpr const char *ADDRESS = "an address: only distances within one object are compared";
constexpr const char *CODE_ADDRESS = "a code address of the program";
constexpr const char *NO_MEANING = "the result means nothing";
constexpr const char *OPAQUE = "an opaque field is the library's own";

// What is compared in another way than its type says, or not at all.
struct exception_row {
    std::string_view operation;
    std::string_view parameter; // empty: the result
    role what;
    const char *uncompared;
};

constexpr auto EXCEPTIONS = std::to_array<exception_row>({
    {"get_bufmem_start", "start", role::address, ADDRESS},
    {"get_bufmem_start", "length", role::number, OWN_MEMORY},
    {"get_bufmem_info", "bpa_paddr", role::address, ADDRESS},
    {"get_bufmem_info", "bpa_vaddr", role::address, ADDRESS},
    {"get_bufmem_info", "bpa_kvaddr", role::address, ADDRESS},
    {"get_bufmem_info", "length", role::number, OWN_MEMORY},
    {"buf_get_paddr", "address", role::address, nullptr},
    {"get_caller", "pid", role::process, nullptr},
    {"get_caller", "pc", role::program_address, CODE_ADDRESS},
    {"nocrash_set", "", role::number, NO_MEANING},
    {"getfd", "", role::descriptor, nullptr},
});

role role_of(form shown, object about)
{
    if (shown == form::error) return role::error;
    if (shown == form::address) return role::address;
    switch (about) {
    case object::client:
        return role::client;
    case object::packet:
        return role::packet;
    case object::buffer:
        return role::buffer;
    case object::bufgroup:
        return role::bufgroup;
    case object::tag:
    case object::dynamic_tag:
        return role::tag;
    default:
        return role::number;
    }
}

// Handles and tags of arguments whose object is an event are clients, groups or tags themselves.
role role_of(argument_kind kind, const interface::argument_info &about)
{
    switch (kind) {
    case argument_kind::cleared_client:
        return role::client;
    case argument_kind::armed_bufgroup:
    case argument_kind::disarmed_bufgroup:
        return role::bufgroup;
    case argument_kind::armed_tag:
    case argument_kind::disarmed_tag:
        return role::tag;
    default:
        return role_of(about.form, about.object);
    }
}

#define AT(type, member) offsetof(type, member), sizeof(type{}.member)

const record_layout &event_layout()
{
    static const record_layout LAYOUT{
        sizeof(kel_event),
        {{"type", AT(kel_event, type)},
         {"flags", AT(kel_event, flags)},
         {"context1", AT(kel_event, context1), role::number, form::hexadecimal},
         {"context2", AT(kel_event, context2), role::number, form::hexadecimal},
         {"object", AT(kel_event, object), role::object, form::hexadecimal},
         {"group_flags", AT(kel_event, group_flags)}}};
    return LAYOUT;
}

const record_layout &thresholds_layout()
{
    static const record_layout LAYOUT{sizeof(kel_bufgroup_thresholds),
                                      {{"max", AT(kel_bufgroup_thresholds, max)},
                                       {"low", AT(kel_bufgroup_thresholds, low)},
                                       {"high", AT(kel_bufgroup_thresholds, high)}}};
    return LAYOUT;
}

const record_layout &timeout_layout()
{
    static const record_layout LAYOUT{
        sizeof(timeval),
        {{"seconds", AT(timeval, tv_sec)}, {"microseconds", AT(timeval, tv_usec)}}};
    return LAYOUT;
}

const record_layout &metadata_layout()
{
    constexpr auto NUMBER = role::number;
    constexpr auto HEXADECIMAL = form::hexadecimal;
    using record = kel_metadata_group;
#define FIELD(member, ...)                                                                         \
    {                                                                                              \
#member, AT(record, member), __VA_ARGS__                                                   \
    }
    static const record_layout LAYOUT{
        sizeof(record),
        {FIELD(mask, NUMBER, HEXADECIMAL),
         FIELD(length, NUMBER, form::decimal, KEL_METADATA_LENGTH),
         FIELD(tag, role::tag, HEXADECIMAL, KEL_METADATA_TAG),
         FIELD(cause, NUMBER, form::decimal, KEL_METADATA_CAUSE),
         FIELD(priority, NUMBER, form::decimal, KEL_METADATA_PRIORITY),
         FIELD(link_type, NUMBER, form::decimal, KEL_METADATA_LINK_TYPE),
         FIELD(vrf_id, NUMBER, form::decimal, KEL_METADATA_VRF_ID),
         FIELD(topology_id, NUMBER, form::decimal, KEL_METADATA_TOPOLOGY_ID),
         FIELD(ingress_vlan_id, NUMBER, form::decimal, KEL_METADATA_INGRESS_VLAN_ID),
         FIELD(egress_vlan_id, NUMBER, form::decimal, KEL_METADATA_EGRESS_VLAN_ID),
         FIELD(opaque_1, NUMBER, HEXADECIMAL, KEL_METADATA_OPAQUE_1, OPAQUE),
         FIELD(opaque_2, NUMBER, HEXADECIMAL, KEL_METADATA_OPAQUE_2, OPAQUE),
         FIELD(opaque_3, NUMBER, HEXADECIMAL, KEL_METADATA_OPAQUE_3, OPAQUE),
         FIELD(data_start, NUMBER, form::decimal, KEL_METADATA_DATA_START),
         FIELD(network_start, NUMBER, form::decimal, KEL_METADATA_NETWORK_START),
         FIELD(transport_start, NUMBER, form::decimal, KEL_METADATA_TRANSPORT_START),
         FIELD(app_start, NUMBER, form::decimal, KEL_METADATA_APP_START),
         FIELD(opaque_4, NUMBER, HEXADECIMAL, KEL_METADATA_OPAQUE_4, OPAQUE),
         FIELD(delta, NUMBER, form::decimal, KEL_METADATA_DELTA),
         FIELD(if_input, NUMBER, HEXADECIMAL, KEL_METADATA_IF_INPUT),
         FIELD(if_output, NUMBER, HEXADECIMAL, KEL_METADATA_IF_OUTPUT),
         FIELD(if_input_l2_physical, NUMBER, HEXADECIMAL, KEL_METADATA_IF_INPUT_L2_PHYSICAL),
         FIELD(if_input_l2_logical, NUMBER, HEXADECIMAL, KEL_METADATA_IF_INPUT_L2_LOGICAL)}};
#undef FIELD
    return LAYOUT;
}

// Names of array members live as long as the table; a deque keeps them where they are.
std::string_view member_of(const std::string &array, unsigned index, const std::string &member)
{
    static std::deque<std::string> names;
    return names.emplace_back(array + "[" + std::to_string(index) + "]" +
                              (member.empty() ? "" : ".") + member);
}

const record_layout &packet_list_layout()
{
    static const record_layout LAYOUT = [] {
        record_layout layout{sizeof(kel_packet_list), {{"count", AT(kel_packet_list, count)}}};
        for (unsigned i = 0; i < KEL_LIST_MAX; i++) {
            const auto add = [&](const char *member, std::size_t offset, std::size_t width,
                                 role what) {
                const std::size_t at =
                    offsetof(kel_packet_list, requests) + i * sizeof(kel_packet_request) + offset;
                layout.fields.push_back({member_of("requests", i, member),
                                         static_cast<std::uint16_t>(at),
                                         static_cast<std::uint8_t>(width), what});
            };
            add("client", AT(kel_packet_request, client), role::client);
            add("group", AT(kel_packet_request, group), role::bufgroup);
            add("size", AT(kel_packet_request, size), role::number);
            add("flag", AT(kel_packet_request, flag), role::number);
            add("tlv", AT(kel_packet_request, tlv), role::number);
            add("tlv_size", AT(kel_packet_request, tlv_size), role::number);
        }
        for (unsigned i = 0; i < KEL_LIST_MAX; i++) {
            const std::size_t at =
                offsetof(kel_packet_list, results) + i * sizeof(kel_packet_result);
            layout.fields.push_back({member_of("results", i, "packet"),
                                     static_cast<std::uint16_t>(at), 4, role::packet});
            layout.fields.push_back({member_of("results", i, "error"),
                                     static_cast<std::uint16_t>(at + 4), 4, role::error,
                                     form::error});
        }
        layout.fields.push_back({"allocated", AT(kel_packet_list, allocated)});
        return layout;
    }();
    return LAYOUT;
}

const record_layout &buffer_list_layout()
{
    static const record_layout LAYOUT = [] {
        record_layout layout{sizeof(kel_buffer_list), {}};
        for (unsigned i = 0; i < KEL_LIST_MAX; i++) {
            layout.fields.push_back(
                {member_of("buffers", i, ""), static_cast<std::uint16_t>(4 * i), 4, role::buffer});
        }
        layout.fields.push_back({"allocated", AT(kel_buffer_list, allocated)});
        return layout;
    }();
    return LAYOUT;
}

// One entry: how many there are says the parameter beside it.
const record_layout &iovec_layout()
{
    static const record_layout LAYOUT{
        sizeof(kel_iovec),
        {{"iov_base", AT(kel_iovec, iov_base), role::address, form::hexadecimal},
         {"iov_len", AT(kel_iovec, iov_len)}}};
    return LAYOUT;
}

const record_layout *layout_of(form shown)
{
    switch (shown) {
    case form::event:
        return &event_layout();
    case form::thresholds:
        return &thresholds_layout();
    case form::timeout:
        return &timeout_layout();
    case form::metadata:
        return &metadata_layout();
    case form::iovecs:
        return &iovec_layout();
    case form::packet_list:
        return &packet_list_layout();
    case form::buffer_list:
        return &buffer_list_layout();
    default:
        return nullptr;
    }
}

constexpr bool IS_POINTER[] = {
#define ARGUMENT_KIND(kind, type, ...) std::is_pointer_v<type>,
#include "kelapi/operations.def"
};
constexpr bool IS_SIGNED[] = {
#define ARGUMENT_KIND(kind, type, ...) std::is_signed_v<type>,
#include "kelapi/operations.def"
};

parameter parameter_of(const interface::argument &listed)
{
    const auto index = static_cast<std::size_t>(listed.kind);
    const interface::argument_info &about = interface::info(listed.kind);
    parameter made;
    made.name = listed.name;
    made.direction = about.direction;
    made.form = about.form;
    made.object = about.object;
    made.effect = about.effect;
    made.what = role_of(listed.kind, about);
    made.by_address = IS_POINTER[index];
    made.is_signed = IS_SIGNED[index];
    made.width = static_cast<std::uint8_t>(made.by_address ? about.target_width : about.width);
    made.record = layout_of(about.form);
    made.shape = made.record                 ? shape::record
                 : about.form == form::text  ? shape::text
                 : about.form == form::bytes ? shape::bytes
                                             : shape::number;
    if (made.form == form::address) made.uncompared = nullptr;
    return made;
}

void mark_counts(operation_schema &which)
{
    for (std::size_t i = 0; i + 1 < which.parameters.size(); i++) {
        parameter &listed = which.parameters[i];
        if (listed.shape != shape::bytes && listed.form != form::iovecs) continue;
        listed.count_at = static_cast<int>(i + 1);
        which.parameters[i + 1].counts = static_cast<int>(i);
    }
}

void apply_exceptions(operation_schema &which)
{
    for (const exception_row &row : EXCEPTIONS) {
        if (row.operation != which.name) continue;
        parameter *changed = &which.result;
        for (parameter &each : which.parameters) {
            if (each.name == row.parameter) changed = &each;
        }
        changed->what = row.what;
        changed->uncompared = row.uncompared;
    }
}

operation_schema library_operation(const interface::operation_info &listed)
{
    const interface::result_info &returned = interface::info(listed.result);
    operation_schema made;
    made.name = listed.name;
    made.function = listed.function;
    made.result.shape = returned.width == 0 ? shape::nothing : shape::number;
    made.result.direction = direction::out;
    made.result.form = returned.form;
    made.result.object = returned.object;
    made.result.effect = returned.effect;
    made.result.width = static_cast<std::uint8_t>(returned.width);
    made.result.what = role_of(returned.form, returned.object);
    made.result.is_signed = listed.result == interface::result_kind::descriptor;
    for (const interface::argument &each : listed.list()) {
        made.parameters.push_back(parameter_of(each));
    }
    mark_counts(made);
    apply_exceptions(made);
    return made;
}

parameter system_parameter(std::string_view name, role what, direction way = direction::in,
                           form shown = form::decimal)
{
    parameter made;
    made.name = name;
    made.what = what;
    made.direction = way;
    made.form = shown;
    made.by_address = way != direction::in;
    return made;
}

operation_schema system_operation(std::string_view name, role result,
                                  std::vector<parameter> parameters)
{
    operation_schema made;
    made.name = name;
    made.result = system_parameter("", result, direction::out,
                                   result == role::error ? form::error : form::decimal);
    made.result.is_signed = true;
    made.parameters = std::move(parameters);
    return made;
}

std::vector<operation_schema> read_operations()
{
    std::vector<operation_schema> all;
    for (const interface::operation_info &listed : interface::OPERATIONS) {
        all.push_back(library_operation(listed));
    }
    parameter timeout = system_parameter("timeout", role::number);
    timeout.shape = shape::record;
    timeout.by_address = true;
    timeout.record = &timeout_layout();
    parameter argument = system_parameter("argument", role::number, direction::inout, form::bytes);
    argument.shape = shape::bytes;
    all.push_back(system_operation(
        "select", role::number,
        {system_parameter("readable", role::descriptor),
         system_parameter("exceptional", role::descriptor), timeout,
         system_parameter("is_readable", role::number, direction::out, form::flag),
         system_parameter("is_exceptional", role::number, direction::out, form::flag)}));
    all.push_back(
        system_operation("sleep", role::number, {system_parameter("seconds", role::number)}));
    all.push_back(system_operation("open_device", role::descriptor, {}));
    all.push_back(system_operation("close_device", role::error,
                                   {system_parameter("device", role::descriptor)}));
    all.push_back(system_operation(
        "ioctl", role::error,
        {system_parameter("device", role::descriptor),
         system_parameter("request", role::number, direction::in, form::hexadecimal), argument}));
    return all;
}

constexpr auto FIRST_SYSTEM = static_cast<operation>(std::size(interface::OPERATIONS));

bool names_object(role what)
{
    return what >= role::client && what <= role::tag;
}

} // namespace

const operation SELECT = FIRST_SYSTEM, SLEEP = FIRST_SYSTEM + 1, OPEN_DEVICE = FIRST_SYSTEM + 2,
                CLOSE_DEVICE = FIRST_SYSTEM + 3, IOCTL = FIRST_SYSTEM + 4;

std::span<const operation_schema> operations()
{
    static const std::vector<operation_schema> OPERATIONS = read_operations();
    return OPERATIONS;
}

const operation_schema *find_operation(std::string_view name)
{
    const auto all = operations();
    const auto found = std::ranges::find(all, name, &operation_schema::name);
    return found == all.end() ? nullptr : &*found;
}

operation number_of(const operation_schema &which)
{
    return static_cast<operation>(&which - operations().data());
}

bool may_wait(operation which)
{
    return which == SELECT || which == SLEEP || schema_of(which).name == "event_wait";
}

bool gives_new_object(const operation_schema &which, const parameter &where)
{
    return where.effect == interface::effect::obtains && names_object(where.what) &&
           where.what != role::bufgroup && which.name != "recv";
}

bool may_name(const parameter &where, role what)
{
    switch (what) {
    case role::client:
    case role::packet:
    case role::buffer:
    case role::bufgroup:
    case role::descriptor:
    case role::address:
        return true;
    case role::tag:
        return where.object == object::dynamic_tag;
    default:
        return false;
    }
}

bool has_succeeded(const operation_schema &which, std::uint64_t result)
{
    const parameter &returned = which.result;
    if (returned.what == role::error) {
        return result == 0 || result == KEL_HIGH_THRESHOLD_REACHED ||
               result == KEL_LOW_THRESHOLD_REACHED;
    }
    if (returned.form == form::handle) return result != 0;
    if (which.is_system()) return static_cast<std::int64_t>(result) >= 0;
    return true;
}

bool has_stored(const operation_schema &which, const parameter &where, std::uint64_t result)
{
    if (!where.is_written()) return false;
    if (has_succeeded(which, result)) return true;
    if (where.form == form::error || where.effect == interface::effect::replaces) return true;
    // A short read has copied what there was.
    const bool read_short = result == ENOSPC && which.name.ends_with("get_data");
    // A TLV that is not there leaves the length untouched.
    if (result == ENOENT && which.name == "tlv_getdata") return where.is_count();
    return read_short && (where.is_count() || where.count_at >= 0);
}

std::size_t request_size(std::uint64_t request)
{
    switch (request) {
    case KEL_IOCTL_ADD_REGION:
    case KEL_IOCTL_GET_REGION_INFO:
        return sizeof(kel_region_desc);
    case KEL_IOCTL_ADD_SUBREGION:
    case KEL_IOCTL_GET_SUBREGION_INFO:
        return sizeof(kel_subregion_desc);
    case KEL_IOCTL_REGISTER_CLIENT:
    case KEL_IOCTL_DELETE_REGION:
    case KEL_IOCTL_DELETE_SUBREGION:
        return sizeof(std::uint32_t);
    default:
        return 0;
    }
}

std::string_view name_of(role what)
{
    switch (what) {
    case role::client:
        return "client";
    case role::packet:
        return "packet";
    case role::buffer:
        return "buffer";
    case role::bufgroup:
        return "group";
    case role::tag:
        return "tag";
    case role::descriptor:
        return "descriptor";
    case role::address:
        return "address";
    case role::process:
        return "self";
    default:
        return "";
    }
}

} // namespace sequence
