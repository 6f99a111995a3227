// SPDX-License-Identifier: MIT
//
// What a fault is: a wrong operation. It takes the place of the model's, gets the same arguments,
// and mostly calls the right one after changing them, or changes afterwards the answer or what
// the model holds. The lock is held, as in the model.
//
// Faults of one operation may meet on one call: each has the next chosen one as its right one.
#pragma once

#include <string_view>
#include <type_traits>
#include <vector>

#include "reference/operations.h"
#include "reference/state.h"

namespace kel_reference::faults {

using enum operation;

using any_function = void (*)();

struct row {
    operation target;
    const char *kind;
    const char *meaning;
    any_function wrong;
};

// The model's function of each operation.
template <operation target> inline constexpr auto model_of = nullptr;
#define OPERATION(function, ...)                                                                   \
    template <> inline constexpr auto model_of<function> = &model::function;
#include "kelapi/operations.def"

// The next fault that is due on the call in progress; null: the model is to do it.
any_function take_due(operation target);

// What the operation would do without the fault that asks.
template <operation target> struct right_one {
    auto operator()(state &library, auto... arguments) const
    {
        using function = decltype(model_of<target>);
        if (const any_function wrong = take_due(target)) {
            return reinterpret_cast<function>(wrong)(library, arguments...);
        }
        return model_of<target>(library, arguments...);
    }
};

inline bool has_succeeded(std::uint32_t error)
{
    return error == 0 || error == KEL_HIGH_THRESHOLD_REACHED || error == KEL_LOW_THRESHOLD_REACHED;
}

// A lambda as a function with the operation's arguments.
template <operation target, typename wrong, typename = decltype(model_of<target>)> struct instead;
template <operation target, typename wrong, typename result, typename... arguments>
struct instead<target, wrong, result (*const)(state &, arguments...)> {
    static result call(state &library, arguments... values)
    {
        return wrong{}(right_one<target>{}, library, values...);
    }
};

// All faults of the operations.
class catalogue {
public:
    std::vector<row> rows;

    // `wrong(right, library, arguments...)` answers in place of each of the operations.
    template <operation... targets, typename wrong>
    void add(const char *kind, const char *meaning, wrong)
    {
        (rows.push_back({targets, kind, meaning,
                         reinterpret_cast<any_function>(&instead<targets, wrong>::call)}),
         ...);
    }

    // `change(library, arguments &...)` changes what is passed, or what the model holds, first.
    template <operation... targets, typename change>
    void add_before(const char *kind, const char *meaning, change)
    {
        add<targets...>(kind, meaning, [](auto right, state &library, auto... arguments) {
            change{}(library, arguments...);
            return right(library, arguments...);
        });
    }

    // `change(library, arguments...)` changes what the model holds after a success.
    template <operation... targets, typename change>
    void add_after(const char *kind, const char *meaning, change)
    {
        add<targets...>(kind, meaning, [](auto right, state &library, auto... arguments) {
            const auto answer = right(library, arguments...);
            if (has_succeeded(answer)) change{}(library, arguments...);
            return answer;
        });
    }

    // `change(library, made, arguments...)` changes the packet or buffer that was obtained.
    template <operation... targets, typename change>
    void add_to_made(const char *kind, const char *meaning, change)
    {
        add<targets...>(kind, meaning, [](auto right, state &library, auto... arguments) {
            const auto made = right(library, arguments...);
            if (made) change{}(library, made, arguments...);
            return made;
        });
    }

    // A member of the object named first stays as it was.
    template <auto member, operation... targets>
    void add_keeping(const char *kind, const char *meaning);

    // A member of the object named first has another value during the call.
    template <auto member, auto meanwhile, operation... targets>
    void add_pretending(const char *kind, const char *meaning);
};

// The families.
void add_client_faults(catalogue &faults);
void add_transport_faults(catalogue &faults);
void add_event_faults(catalogue &faults);
void add_buf_faults(catalogue &faults);
void add_packet_faults(catalogue &faults);
void add_bufgroup_faults(catalogue &faults);
void add_metadata_faults(catalogue &faults);
void add_tlv_faults(catalogue &faults);
void add_writing_faults(catalogue &faults);

// Writes what faults have put off. Called before every operation.
void write_again(state &library);

// The object that a handle names. Where it names none, an object that nobody else sees: the
// model refuses the handle, and a fault need not ask.
template <typename object> object &named(state &library, std::uint32_t handle)
{
    object *found = nullptr;
    if constexpr (std::is_same_v<object, client_object>) found = library.clients.find(handle);
    if constexpr (std::is_same_v<object, packet_object>) found = library.packets.find(handle);
    if constexpr (std::is_same_v<object, buffer_object>) found = library.buffers.find(handle);
    if constexpr (std::is_same_v<object, bufgroup_object>) found = library.bufgroups.find(handle);
    static object &nobody = *new object;
    return found ? *found : nobody;
}

// Likewise where the handle stands in the caller's memory.
template <typename object> object &named(state &library, const std::uint32_t *handle)
{
    return named<object>(library, handle ? *handle : 0);
}

// Puts a value back at the end of a block; until then there may be another in its place.
template <typename type> class kept {
public:
    explicit kept(type &value) : place(value), before(value) {}
    kept(type &value, type meanwhile) : kept(value) { place = meanwhile; }
    kept(const kept &) = delete;
    kept &operator=(const kept &) = delete;
    ~kept() { place = before; }

private:
    type &place;
    type before;
};

// Likewise a member of all objects of a table that are still there.
template <typename table, typename object, typename type> class kept_in_all {
public:
    kept_in_all(table &kept_objects, type object::*kept_member)
        : objects(kept_objects), member(kept_member)
    {
        objects.for_each([&](object &each) { before.emplace_back(each.handle, each.*member); });
    }
    // `meanwhile(object)` is what each has until then.
    kept_in_all(table &kept_objects, type object::*kept_member, auto meanwhile)
        : kept_in_all(kept_objects, kept_member)
    {
        objects.for_each([&](object &each) { each.*member = meanwhile(each); });
    }
    kept_in_all(const kept_in_all &) = delete;
    kept_in_all &operator=(const kept_in_all &) = delete;
    ~kept_in_all()
    {
        for (const auto &[handle, value] : before) {
            if (object *each = objects.find(handle)) each->*member = value;
        }
    }

private:
    table &objects;
    type object::*member;
    std::vector<std::pair<std::uint32_t, type>> before;
};

template <typename object, typename type> object class_of(type object::*);

template <auto member, operation... targets>
void catalogue::add_keeping(const char *kind, const char *meaning)
{
    using object = decltype(class_of(member));
    add<targets...>(kind, meaning, [](auto right, state &library, auto first, auto... others) {
        const kept member_of_it(named<object>(library, first).*member);
        return right(library, first, others...);
    });
}

template <auto member, auto meanwhile, operation... targets>
void catalogue::add_pretending(const char *kind, const char *meaning)
{
    using object = decltype(class_of(member));
    add<targets...>(kind, meaning, [](auto right, state &library, auto first, auto... others) {
        const kept member_of_it(named<object>(library, first).*member, meanwhile);
        return right(library, first, others...);
    });
}

} // namespace kel_reference::faults
