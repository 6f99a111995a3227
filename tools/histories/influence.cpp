// SPDX-License-Identifier: MIT
#include "tools/histories/influence.h"

#include <algorithm>
#include <map>
#include <set>
#include <string_view>

namespace histories {

namespace {

using names = std::set<std::string_view>;

// The parts of the state.
constexpr std::uint32_t HOLDERS = 1; // who receives a tag's packets
constexpr std::uint32_t ACCOUNTS = 2;
constexpr std::uint32_t FIRST_QUEUE = 4; // one bit for the receivers of each tag, as far as they go
constexpr std::uint32_t ALL_QUEUES = ~(HOLDERS | ACCOUNTS);
constexpr std::uint32_t EVERYTHING = ~std::uint32_t{0};

std::string_view name_of(const sequence::call &made)
{
    return sequence::schema_of(made.operation).name;
}

// On packets and buffers, which one thread has at a time.
bool is_of_one_thread(std::string_view name)
{
    static const names NAMES = {"get_cause", "set_cause", "get_data",   "set_data",
                                "get_tag",   "set_tag",   "get_length", "append"};
    return NAMES.contains(name);
}

bool is_account(std::string_view name)
{
    static const names NAMES = {"get_packet", "free_packet", "get_buffer", "free_buffer",
                                "duplicate"};
    return NAMES.contains(name);
}

bool changes_holders(std::string_view name)
{
    static const names NAMES = {"register_tag", "deregister_tag", "alloc_tag", "free_tag",
                                "client_ha_role_notify"};
    return NAMES.contains(name);
}

bool is_among_others(const sequence::call &made)
{
    return made.thread != FIRST_THREAD;
}

class examination {
public:
    explicit examination(const history &whole) : whole_(whole), made_(whole.made)
    {
        for (std::size_t i = 0; i < made_.calls.size(); i++) look_at(i);
    }

    influence of(std::size_t index) const
    {
        const sequence::call &made = made_.calls[index];
        influence one{parts_of(index), has_effect(made, made_.answers[index])};
        // What may fire an event, or report one, is seen by all that may.
        if (has_events_ && one.parts != 0) one.parts = EVERYTHING;
        return one;
    }

private:
    void look_at(std::size_t index)
    {
        const sequence::call &made = made_.calls[index];
        const std::string_view name = name_of(made);
        if (name.starts_with("event_")) has_events_ = true;
        if (name == "bufgroup_set_params") has_thresholds_ = true;
        const bool asks = name.find("count_by") != std::string_view::npos;
        if (asks && is_among_others(made)) has_questions_ = true;
        const bool does = has_effect(made, made_.answers[index]);
        if (changes_holders(name) && is_among_others(made) && does) are_holders_fixed_ = false;
        if (name == "register_tag" && !is_among_others(made)) note_holder(made);
    }

    void note_holder(const sequence::call &made)
    {
        const std::uint64_t tag = made.arguments[1].one().number;
        const auto part = parts_of_tags_.try_emplace(
            tag, FIRST_QUEUE << std::min<std::size_t>(parts_of_tags_.size(), 28));
        parts_of_clients_[made.arguments[0].one().name] |= part.first->second;
    }

    std::uint32_t parts_of(std::size_t index) const
    {
        const sequence::call &made = made_.calls[index];
        const std::string_view name = name_of(made);
        if (is_of_one_thread(name)) return 0;
        if (is_account(name)) {
            return has_thresholds_ || has_events_ || has_questions_ ? ACCOUNTS : 0;
        }
        if (changes_holders(name) || name == "is_tag_registered") return HOLDERS;
        if (name == "send") return parts_of_send(index);
        if (name == "recv" || name == "queue_is_empty") return queue_of(made);
        return EVERYTHING;
    }

    // Of a client that held no tag before the threads began any queue may be meant.
    std::uint32_t queue_of(const sequence::call &made) const
    {
        const auto found = parts_of_clients_.find(made.arguments[0].one().name);
        return found == parts_of_clients_.end() ? ALL_QUEUES : found->second;
    }

    // While nobody changes who holds a tag its packets go to one queue.
    std::uint32_t parts_of_send(std::size_t index) const
    {
        if (!are_holders_fixed_) return HOLDERS | ALL_QUEUES;
        const auto tag = parts_of_tags_.find(tag_at(index));
        return tag == parts_of_tags_.end() ? HOLDERS | ALL_QUEUES : tag->second;
    }

    // The tag that the sent packet has had since the last call before that changed it.
    std::uint64_t tag_at(std::size_t index) const
    {
        const sequence::scalar sent = made_.calls[index].arguments[1].one();
        std::uint64_t tag = 0;
        for (std::size_t i = 0; i < made_.calls.size(); i++) {
            const sequence::call &made = made_.calls[i];
            if (whole_.times[i].end > whole_.times[index].begin) break;
            if (name_of(made) != "set_tag" || made.arguments[0].one() != sent) continue;
            const sequence::scalar given = made.arguments[1].one();
            tag = given.name < 0 ? given.number : 0;
        }
        return tag;
    }

    const history &whole_;
    const sequence::call_sequence &made_;
    bool has_events_ = false;
    bool has_thresholds_ = false;
    bool has_questions_ = false;
    bool are_holders_fixed_ = true;
    std::map<std::uint64_t, std::uint32_t> parts_of_tags_;
    std::map<sequence::variable, std::uint32_t> parts_of_clients_;
};

} // namespace

std::vector<influence> influences_of(const history &whole)
{
    const examination examined(whole);
    std::vector<influence> all;
    all.reserve(whole.made.calls.size());
    for (std::size_t i = 0; i < whole.made.calls.size(); i++) all.push_back(examined.of(i));
    return all;
}

bool has_effect(const sequence::call &made, const sequence::answer &given)
{
    const auto &which = sequence::schema_of(made.operation);
    const std::string_view name = which.name;
    if (name == "queue_is_empty" || name == "is_tag_registered") return false;
    if (name == "event_wait" && given.stored[1].kind == sequence::value_kind::record &&
        given.stored[1].scalars[0].number == KEL_EVENT_NONE) {
        return false;
    }
    if (given.result.kind != sequence::value_kind::number) return true;
    const sequence::scalar result = given.result.one();
    return result.name != sequence::NO_VARIABLE || has_succeeded(which, result.number);
}

} // namespace histories
