// SPDX-License-Identifier: MIT
//
// Faults carried out on one call of the library: before it, instead of it and after it.
#pragma once

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "tools/keltrace/operations.h"
#include "tools/keltrace/state.h"
#include "tools/keltrace/widths.h"

namespace keltrace {

inline void count_fired(fault &each)
{
    each.fired.fetch_add(1, std::memory_order_relaxed);
}

// The byte that `flip` names, counted from either end.
inline std::optional<std::size_t> flipped_byte(const fault &each, std::size_t length)
{
    const std::int64_t from_end = static_cast<std::int64_t>(length);
    const std::int64_t position =
        each.signed_value() < 0 ? from_end + each.signed_value() : each.signed_value();
    if (position < 0 || position >= from_end) return std::nullopt;
    return static_cast<std::size_t>(position);
}

template <operation Id, typename Result, typename... Arguments> class call_faults {
public:
    using arguments = std::tuple<Arguments...>;

    call_faults(std::uint64_t number, const arguments &seen)
        : passed(seen), number_(number), seen_(seen)
    {
        remember_room();
    }

    // What the library gets.
    arguments passed;
    // Whether it is called at all; otherwise `result` stands.
    bool work = true;
    Result result{};

    void before()
    {
        for (fault *each : faults_of(Id)) {
            if (!each->matches(number_)) continue;
            each->hits.fetch_add(1, std::memory_order_relaxed);
            if (before(*each)) count_fired(*each);
        }
    }

    void after()
    {
        for (fault *each : faults_of(Id)) {
            if (each->matches(number_) && after(*each)) count_fired(*each);
        }
    }

private:
    static constexpr auto RETURNED = info(info(Id).result);
    static constexpr bool HANDLE = RETURNED.form == form::handle;
    static constexpr int OUT_ERROR = info(Id).find(argument_kind::out_error);
    static constexpr int SOURCE = info(Id).find(argument_kind::source);
    static constexpr int DESTINATION = info(Id).find(argument_kind::destination);

    bool before(const fault &each)
    {
        switch (each.what) {
        case action::delay:
            pause_for(each.value);
            return true;
        case action::pass_argument:
            return set_passed(each, indices());
        case action::flip:
            return flip_source(each);
        case action::error:
            work = false;
            store_error(static_cast<std::uint32_t>(each.value));
            result = HANDLE ? Result{} : static_cast<Result>(each.value);
            return true;
        case action::lost:
            work = false;
            store_error(0);
            result = Result{};
            return true;
        default:
            return false;
        }
    }

    bool after(const fault &each)
    {
        switch (each.what) {
        case action::after:
            if (HANDLE) return store_error(static_cast<std::uint32_t>(each.value));
            result = static_cast<Result>(each.value);
            return true;
        case action::result:
            result = static_cast<Result>(each.value);
            return true;
        case action::set_argument:
        case action::add_argument:
            return set_target(each, indices());
        case action::flip:
            return flip_destination(each);
        default:
            return false;
        }
    }

    static constexpr auto indices() { return std::index_sequence_for<Arguments...>(); }

    bool store_error(std::uint32_t error)
    {
        if constexpr (OUT_ERROR >= 0) {
            std::uint32_t *target = std::get<OUT_ERROR>(seen_);
            if (target == nullptr) return false;
            *target = error;
            return true;
        }
        return false;
    }

    template <std::size_t... I> bool set_passed(const fault &each, std::index_sequence<I...>)
    {
        [[maybe_unused]] const auto set = [&each](auto &argument) {
            argument = narrowed<std::remove_reference_t<decltype(argument)>>(each.value);
            return true;
        };
        return ((each.argument == I && set(std::get<I>(passed))) || ...);
    }

    template <std::size_t... I> bool set_target(const fault &each, std::index_sequence<I...>)
    {
        return ((each.argument == I && write_target(each, std::get<I>(seen_))) || ...);
    }

    template <typename Value> bool write_target(const fault &each, Value target)
    {
        if constexpr (std::is_pointer_v<Value>) {
            using named = std::remove_pointer_t<Value>;
            if constexpr (!std::is_const_v<named> && !std::is_void_v<named>) {
                if (target == nullptr) return false;
                if constexpr (std::is_scalar_v<named>) {
                    change<named>(each, target);
                } else {
                    change<std::uint32_t>(each, reinterpret_cast<unsigned char *>(target) +
                                                    each.word.value_or(0) * sizeof(std::uint32_t));
                }
                return true;
            }
        }
        return false;
    }

    // Records are packed tighter than their words would be: no assumption on alignment.
    template <typename Named> static void change(const fault &each, void *target)
    {
        Named value{};
        if (each.what == action::add_argument) memcpy(&value, target, sizeof value);
        value = narrowed<Named>(widened(value) + each.value);
        memcpy(target, &value, sizeof value);
    }

    bool flip_source(const fault &each)
    {
        if constexpr (SOURCE >= 0) {
            const void *source = std::get<SOURCE>(passed);
            const std::size_t length = std::get<SOURCE + 1>(passed);
            const auto position = flipped_byte(each, length);
            if (source == nullptr || !position) return false;
            if (copy_.empty()) {
                const auto *bytes = static_cast<const unsigned char *>(source);
                copy_.assign(bytes, bytes + length);
                std::get<SOURCE>(passed) = copy_.data();
            }
            copy_[*position] ^= 1;
            return true;
        }
        return false;
    }

    void remember_room()
    {
        if constexpr (DESTINATION >= 0) {
            const std::uint32_t *length = std::get<DESTINATION + 1>(seen_);
            if (length != nullptr) room_ = *length;
        }
    }

    // ENOSPC, too, has copied what there was.
    bool flip_destination(const fault &each)
    {
        if constexpr (DESTINATION >= 0) {
            auto *bytes = static_cast<unsigned char *>(std::get<DESTINATION>(seen_));
            const std::uint32_t *length = std::get<DESTINATION + 1>(seen_);
            if (!work || bytes == nullptr || length == nullptr) return false;
            if (result != 0 && result != ENOSPC) return false;
            const auto position = flipped_byte(each, std::min(*length, room_));
            if (!position) return false;
            bytes[*position] ^= 1;
            return true;
        }
        return false;
    }

    std::uint64_t number_;
    const arguments &seen_;
    std::uint32_t room_ = 0;
    std::vector<unsigned char> copy_;
};

} // namespace keltrace
