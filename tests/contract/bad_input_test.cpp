// SPDX-License-Identifier: MIT
//
// Every operation with every argument gone wrong, one at a time, made from the list of
// operations. Each refusal is a defined one, nothing crashes and nothing is left behind or
// lost.

#include "tests/contract/contract.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <functional>
#include <set>
#include <string_view>
#include <type_traits>

#include "tools/common/interface.h"

using namespace contract;

namespace {

using form = interface::form;
using object = interface::object;
using presence = interface::presence;

// The kinds of the list as types.
namespace argument {
#define ARGUMENT_KIND(kind, c_type, direction_, form_, object_, effect_, presence_)                \
    struct kind {                                                                                  \
        using type = c_type;                                                                       \
        static constexpr auto form = interface::form::form_;                                       \
        static constexpr auto object = interface::object::object_;                                 \
        static constexpr auto presence = interface::presence::presence_;                           \
    };
#include "kelapi/operations.def"
} // namespace argument

namespace result {
#define RESULT_KIND(kind, c_type, form, object, effect)                                            \
    struct kind {                                                                                  \
        using type = c_type;                                                                       \
    };
#include "kelapi/operations.def"
} // namespace result

constexpr std::uint32_t SIZE = 64; // of what is asked for, read and written
constexpr kel_tag TAG = 1000;
constexpr kel_tag ARMED_TAG = 1001;
constexpr kel_tag FREE_TAG = 1002;

// One object of each kind that operations work on, and one of each that is gone.
struct world {
    kel_client client = 0;
    kel_packet packet = 0;
    kel_buffer buffer = 0;       // head of a chain of two
    kel_buffer added_buffer = 0; // to be given away
    kel_bufgroup group = 0;
    kel_bufgroup armed_group = 0;
    kel_tag dynamic_tag = 0;
    kel_client stale_client = 0;
    kel_packet stale_packet = 0;
    kel_buffer stale_buffer = 0;
    kel_bufgroup stale_group = 0;
    kel_client new_client = 0; // what an operation may store

    // Room for what is passed by address.
    std::uint32_t handle = 0;
    std::uint32_t number = 0;
    std::uint32_t length = SIZE;
    std::uint16_t number16 = 0;
    std::uint64_t number64 = 0;
    std::uintptr_t code_address = 0;
    void *address = nullptr;
    std::uint32_t error = 4711;
    std::array<std::uint8_t, 4096> bytes{};
    std::array<kel_iovec, 16> iovecs{};
    kel_bufgroup_thresholds thresholds{10, 1, 8};
    kel_bufgroup_thresholds out_thresholds{};
    kel_event event_to_arm{};
    kel_event armed_event{};
    kel_event fired_event{};
    kel_metadata_group metadata{};
    kel_packet_list packet_list{};
    kel_buffer_list buffer_list{};
    timeval no_time{0, 0};

    world();
    ~world();
    world(const world &) = delete;
    world &operator=(const world &) = delete;
};

world::world()
{
    EXPECT_OK(kel_register_client(&client, "client", KEL_ROLE_ACTIVE, 8));
    EXPECT_OK(kel_register_tag(client, TAG));
    EXPECT_OK(kel_register_tag(client, ARMED_TAG));
    EXPECT_OK(kel_alloc_tag(client, &dynamic_tag, nullptr));
    const kel_packet waiting = kel_get_packet(client, 0, SIZE, 1, nullptr);
    EXPECT_OK(kel_set_tag(waiting, TAG));
    EXPECT_OK(kel_send(client, waiting));

    packet = kel_get_packet(client, 0, 512, 1, nullptr);
    EXPECT_OK(kel_set_tag(packet, TAG));
    EXPECT_OK(kel_set_ifid(packet, IF_INPUT, 1));
    EXPECT_OK(kel_tlv_alloc(packet, 1, SIZE));
    EXPECT_OK(kel_tlv_version_set(packet, 1, 10));
    buffer = kel_get_buffer(client, 0, 512, 1, nullptr);
    EXPECT_OK(kel_buf_append(buffer, kel_get_buffer(client, 0, 512, 1, nullptr)));
    added_buffer = kel_get_buffer(client, 0, 512, 1, nullptr);
    EXPECT_OK(kel_register_bufgroup(client, &group, "group"));
    EXPECT_OK(kel_register_bufgroup(client, &armed_group, "armed group"));
    EXPECT_OK(kel_event_add_bufgroup(client, armed_group, 3, 0, 0));
    // Pending at once, for there is room.
    EXPECT_OK(kel_event_add_tag(client, ARMED_TAG, 0, 0));
    EXPECT_TRUE(is_exceptional(client)) << "a wait would not end";

    EXPECT_OK(kel_register_client(&stale_client, nullptr, KEL_ROLE_ACTIVE, 8));
    EXPECT_OK(kel_deregister_client(stale_client));
    stale_packet = kel_get_pkthdr(client);
    EXPECT_OK(kel_free_packet(stale_packet));
    stale_buffer = kel_get_buffer(client, 0, SIZE, 1, nullptr);
    EXPECT_OK(kel_free_buffer(stale_buffer));
    EXPECT_OK(kel_register_bufgroup(client, &stale_group, "stale group"));
    EXPECT_OK(kel_deregister_bufgroup(client, stale_group));

    event_to_arm = {KEL_EVENT_BUFGROUP, 0, 1, 2, group, 3};
    armed_event = {KEL_EVENT_BUFGROUP, 0, 0, 0, armed_group, 3};
    metadata.mask = KEL_METADATA_CAUSE;
    packet_list.count = 1;
    packet_list.requests[0] = {client, 0, SIZE, 0, {}, 0, 0};
}

world::~world()
{
    kel_deregister_client(client);
    kel_deregister_client(new_client);
}

// A good value of each kind.
template <class Kind> auto good_handle(const world &given)
{
    if constexpr (std::is_same_v<Kind, argument::given_buffer>) return given.added_buffer;
    if constexpr (std::is_same_v<Kind, argument::disarmed_bufgroup>) return given.armed_group;
    if constexpr (std::is_same_v<Kind, argument::armed_bufgroup>) return given.group;
    if constexpr (std::is_same_v<Kind, argument::cleared_client>) return given.client;
    switch (Kind::object) {
    case object::client:
        return given.client;
    case object::packet:
        return given.packet;
    case object::buffer:
        return given.buffer;
    default:
        return given.group;
    }
}

template <class Kind> std::uint32_t good_name(const world &given)
{
    if constexpr (std::is_same_v<Kind, argument::claimed_tag>) return FREE_TAG;
    if constexpr (std::is_same_v<Kind, argument::freed_tag>) return given.dynamic_tag;
    if constexpr (std::is_same_v<Kind, argument::disarmed_tag>) return ARMED_TAG;
    if constexpr (std::is_same_v<Kind, argument::allocated_tlv>) return 2;
    return Kind::object == object::tlv ? 1 : TAG;
}

template <class Kind> auto good_value(const world &given)
{
    using type = typename Kind::type;
    if constexpr (Kind::form == form::handle) {
        return good_handle<Kind>(given);
    } else if constexpr (std::is_same_v<Kind, argument::armed_tag> ||
                         std::is_same_v<Kind, argument::disarmed_tag> ||
                         Kind::object != object::none) {
        return good_name<Kind>(given);
    } else if constexpr (Kind::form == form::role) {
        return KEL_ROLE_STANDBY;
    } else if constexpr (Kind::form == form::interface_kind || Kind::form == form::offset_kind) {
        return 1u;
    } else if constexpr (Kind::form == form::group_flags || std::is_same_v<Kind, argument::bits>) {
        return 3u;
    } else if constexpr (Kind::form == form::flag) {
        return type{0};
    } else if constexpr (std::is_same_v<Kind, argument::number16> ||
                         std::is_same_v<Kind, argument::version_bound>) {
        return type{10};
    } else if constexpr (std::is_same_v<Kind, argument::count> ||
                         std::is_same_v<Kind, argument::count16>) {
        return type{8};
    } else {
        return type{SIZE};
    }
}

template <class Kind> typename Kind::type good_address(world &given)
{
    const auto is = []<class Other>(std::type_identity<Other>) {
        return std::is_same_v<Kind, Other>;
    };
    if constexpr (std::is_same_v<Kind, argument::new_client>) {
        return &given.new_client;
    } else if constexpr (std::is_same_v<Kind, argument::head>) {
        given.handle = given.buffer;
        return &given.handle;
    } else if constexpr (std::is_same_v<Kind, argument::next_tlv>) {
        given.number = 1;
        return &given.number;
    } else if constexpr (is(std::type_identity<argument::destination_length>{})) {
        given.length = SIZE;
        return &given.length;
    } else if constexpr (is(std::type_identity<argument::iovec_count>{})) {
        given.length = static_cast<std::uint32_t>(given.iovecs.size());
        return &given.length;
    } else if constexpr (is(std::type_identity<argument::out_error>{})) {
        return &given.error;
    } else if constexpr (is(std::type_identity<argument::armed_event>{})) {
        return &given.event_to_arm;
    } else if constexpr (is(std::type_identity<argument::disarmed_event>{})) {
        return &given.armed_event;
    } else if constexpr (is(std::type_identity<argument::fired_event>{})) {
        return &given.fired_event;
    } else if constexpr (is(std::type_identity<argument::thresholds>{})) {
        return &given.thresholds;
    } else if constexpr (is(std::type_identity<argument::out_thresholds>{})) {
        return &given.out_thresholds;
    } else if constexpr (Kind::form == form::text) {
        return "fresh name";
    } else if constexpr (Kind::form == form::bytes) {
        return given.bytes.data();
    } else if constexpr (Kind::form == form::timeout) {
        return &given.no_time;
    } else if constexpr (Kind::form == form::metadata) {
        return &given.metadata;
    } else if constexpr (Kind::form == form::iovecs) {
        return given.iovecs.data();
    } else if constexpr (Kind::form == form::packet_list) {
        return &given.packet_list;
    } else if constexpr (Kind::form == form::buffer_list) {
        return &given.buffer_list;
    } else if constexpr (std::is_same_v<typename Kind::type, std::uint32_t *>) {
        return &given.number;
    } else if constexpr (std::is_same_v<typename Kind::type, std::uint16_t *>) {
        return &given.number16;
    } else if constexpr (std::is_same_v<Kind, argument::out_code_address>) {
        return &given.code_address;
    } else if constexpr (std::is_same_v<typename Kind::type, std::uint64_t *>) {
        return &given.number64;
    } else {
        return &given.address;
    }
}

template <class Kind> typename Kind::type good(world &given)
{
    if constexpr (std::is_pointer_v<typename Kind::type>) {
        return good_address<Kind>(given);
    } else {
        return good_value<Kind>(given);
    }
}

// How a call with one bad argument is to end.
enum class outcome { refusal, success, any };

template <class Kind> struct bad_value {
    std::string description;
    outcome expected;
    std::function<typename Kind::type(world &)> value;
};

using handle_source = std::pair<std::string, std::uint32_t world::*>;

// Handles that are none of `wanted`: stale ones and those of other kinds.
std::vector<handle_source> handles_other_than(object wanted)
{
    std::vector<handle_source> sources = {{"a stale client", &world::stale_client},
                                          {"a stale packet", &world::stale_packet},
                                          {"a stale buffer", &world::stale_buffer},
                                          {"a stale group", &world::stale_group}};
    if (wanted != object::client) sources.emplace_back("a client", &world::client);
    if (wanted != object::packet) sources.emplace_back("a packet", &world::packet);
    if (wanted != object::buffer) sources.emplace_back("a buffer", &world::buffer);
    if (wanted != object::bufgroup) sources.emplace_back("a group", &world::group);
    return sources;
}

// What kind of handle an argument takes: where an event is concerned, its owner or its group.
template <class Kind> constexpr object handle_kind()
{
    if constexpr (Kind::object != object::event) {
        return Kind::object;
    } else {
        return std::is_same_v<Kind, argument::cleared_client> ? object::client : object::bufgroup;
    }
}

constexpr outcome outcome_without(presence needed)
{
    return needed == presence::required   ? outcome::refusal
           : needed == presence::optional ? outcome::success
                                          : outcome::any;
}

// Addresses, of arguments that are handles behind an address too.
template <class Kind> std::vector<bad_value<Kind>> bad_addresses()
{
    std::vector<bad_value<Kind>> values = {
        {"null", outcome_without(Kind::presence), [](world &) { return nullptr; }}};
    if constexpr (std::is_same_v<Kind, argument::head>) {
        const auto add = [&](const std::string &description, auto handle_of) {
            values.push_back(
                {"the address of " + description, outcome::refusal, [handle_of](world &given) {
                     given.handle = handle_of(given);
                     return &given.handle;
                 }});
        };
        add("0", [](world &) { return 0u; });
        for (const std::uint32_t bad : BAD_HANDLES) {
            add("a bad handle", [bad](world &) { return bad; });
        }
        for (const auto &[name, source] : handles_other_than(object::buffer)) {
            add(name, [source = source](world &given) { return given.*source; });
        }
    } else if constexpr (std::is_same_v<Kind, argument::next_tlv>) {
        for (const std::uint32_t unknown : {9u, 0xffffffffu}) {
            values.push_back(
                {"the address of an unknown id", outcome::refusal, [unknown](world &given) {
                     given.number = unknown;
                     return &given.number;
                 }});
        }
    } else if constexpr (std::is_same_v<Kind, argument::destination_length> ||
                         std::is_same_v<Kind, argument::iovec_count>) {
        for (const std::uint32_t length : {0u, 1u, 0xffffffffu}) {
            values.push_back({"the address of a number", outcome::any, [length](world &given) {
                                  given.length = length;
                                  return &given.length;
                              }});
        }
    }
    return values;
}

template <class Kind> std::vector<bad_value<Kind>> bad_values()
{
    using type = typename Kind::type;
    if constexpr (std::is_pointer_v<type>) {
        return bad_addresses<Kind>();
    } else {
        std::vector<bad_value<Kind>> values = {
            {"0", outcome_without(Kind::presence), [](world &) { return type{0}; }}};
        if constexpr (Kind::form == form::handle) {
            for (const std::uint32_t bad : BAD_HANDLES) {
                values.push_back(
                    {"a bad handle", outcome::refusal, [bad](world &) { return bad; }});
            }
            for (const auto &[name, source] : handles_other_than(handle_kind<Kind>())) {
                values.push_back({name, outcome::refusal,
                                  [source = source](world &given) { return given.*source; }});
            }
        } else {
            const auto outcome = Kind::presence == presence::value || Kind::object == object::tag ||
                                         Kind::object == object::tlv
                                     ? outcome::any
                                     : outcome::refusal;
            values.push_back({"all ones", outcome, [](world &) { return static_cast<type>(-1); }});
        }
        return values;
    }
}

// What an operation returns when it refuses; of those that return numbers each has its own.
std::uint32_t refusing_number(std::string_view operation)
{
    if (operation == "kel_queue_is_empty") return EINVAL;
    return operation == "kel_get_buf_count" ? 0xffffffff : 0;
}

template <class Result, class Value>
bool is_refusal(std::string_view operation, Value value, const world &given, bool stores_error)
{
    if constexpr (std::is_same_v<Result, result::error>) {
        return value != 0 && value != KEL_HIGH_THRESHOLD_REACHED &&
               value != KEL_LOW_THRESHOLD_REACHED;
    } else if constexpr (std::is_same_v<Result, result::descriptor>) {
        return value == -1;
    } else if constexpr (std::is_same_v<Result, result::number32>) {
        return value == refusing_number(operation);
    } else {
        // A new handle, and with it the error, or a value that is 0.
        return value == 0 && (!stores_error || (given.error != 0 && given.error != 4711));
    }
}

// Where the outcome is another than the presence column tells.
struct exception {
    std::string_view operation;
    std::string_view argument;
    outcome expected;
};
constexpr exception EXCEPTIONS[] = {
    // The mask given names both records, so both are needed.
    {"kel_bufgroup_set_params", "buffers", outcome::refusal},
    {"kel_bufgroup_set_params", "bytes", outcome::refusal},
};

struct tally {
    int calls = 0;
    int refusals = 0;
    std::set<std::string_view> operations;
};
tally counted;

class bad_input : public contract::test {};

template <auto operation, class Result, class... Kinds> class attempt {
public:
    attempt(std::string_view operation_name, std::array<std::string_view, sizeof...(Kinds)> names)
        : name(operation_name), argument_names(names)
    {
    }

    void run_all() const
    {
        counted.operations.insert(name);
        call("good arguments", outcome::success, [](world &given) {
            return std::tuple<typename Kinds::type...>(good<Kinds>(given)...);
        });
        each_argument(std::index_sequence_for<Kinds...>{});
    }

private:
    std::string_view name;
    std::array<std::string_view, sizeof...(Kinds)> argument_names;

    template <std::size_t... indices> void each_argument(std::index_sequence<indices...>) const
    {
        (one_argument<indices>(), ...);
    }

    template <std::size_t index> void one_argument() const
    {
        using kind = std::tuple_element_t<index, std::tuple<Kinds...>>;
        for (const bad_value<kind> &bad : bad_values<kind>()) {
            outcome expected = bad.expected;
            for (const exception &each : EXCEPTIONS) {
                const bool applies =
                    each.operation == name && each.argument == argument_names[index];
                if (applies && bad.description == "null") expected = each.expected;
            }
            call(std::string(argument_names[index]) + ": " + bad.description, expected,
                 [&](world &given) {
                     std::tuple<typename Kinds::type...> arguments(good<Kinds>(given)...);
                     std::get<index>(arguments) = bad.value(given);
                     return arguments;
                 });
        }
    }

    template <class Arguments>
    void call(const std::string &description, outcome expected, Arguments arguments_in) const
    {
        SCOPED_TRACE(std::string(name) + ", " + description);
        {
            world given;
            if (testing::Test::HasFailure()) return;
            const std::string before = describe(take_census());
            const auto arguments = arguments_in(given);
            counted.calls++;
            judge(given, before, arguments, expected);
        }
        ASSERT_EQ(describe(take_census()), describe({})) << "left behind";
    }

    static bool stores_error(const std::tuple<typename Kinds::type...> &arguments)
    {
        constexpr bool has_error = (std::is_same_v<Kinds, argument::out_error> || ...);
        if constexpr (has_error) {
            return std::get<sizeof...(Kinds) - 1>(arguments) != nullptr;
        } else {
            return false;
        }
    }

    void judge(const world &given, const std::string &before,
               const std::tuple<typename Kinds::type...> &arguments, outcome expected) const
    {
        if constexpr (std::is_void_v<typename Result::type>) {
            std::apply(operation, arguments);
            EXPECT_EQ(describe(take_census()), before);
        } else {
            const auto value = std::apply(operation, arguments);
            const bool refused = is_refusal<Result>(name, value, given, stores_error(arguments));
            const bool refuses_nothing = name == "kel_nocrash_set";
            if (expected == outcome::refusal) {
                EXPECT_TRUE(refused) << "gives " << value;
            }
            if (expected == outcome::success && !refuses_nothing) {
                EXPECT_FALSE(refused) << "gives " << value;
            }
            if (!refused) return;
            counted.refusals++;
            EXPECT_EQ(describe(take_census()), before) << "a refusal changed something";
        }
    }
};

// A function for each operation, so that failures are told apart by the test's name.
#define KIND(kind, name) argument::kind
#define NAME(kind, name) #name
#define OPERATION(operation, result_kind, ...)                                                     \
    TEST_F(bad_input, operation)                                                                   \
    {                                                                                              \
        leaves_objects_to_deregistration();                                                        \
        attempt<&::operation,                                                                      \
                result::result_kind __VA_OPT__(, ) FOR_EACH_ARGUMENT(KIND, __VA_ARGS__)>(          \
            #operation, {FOR_EACH_ARGUMENT(NAME, __VA_ARGS__)})                                    \
            .run_all();                                                                            \
    }
#include "kelapi/operations.def"

class report : public testing::Environment {
public:
    void TearDown() override
    {
        std::printf("%d calls of %zu operations, %d of them refused\n", counted.calls,
                    counted.operations.size(), counted.refusals);
    }
};

const testing::Environment *const environment = testing::AddGlobalTestEnvironment(new report);

} // namespace
