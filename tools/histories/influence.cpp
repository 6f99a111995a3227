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
constexpr std::uint32_t FIRST_QUEUE = 8; // one bit a client, as far as they go
constexpr std::uint32_t ALL_QUEUES = ~(HOLDERS | ACCOUNTS | ROLES);
constexpr std::uint32_t EVERYTHING = ~std::uint32_t{0};

constexpr std::size_t NO_CALL = ~std::size_t{0};

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
    static const names NAMES = {"register_tag", "deregister_tag", "alloc_tag", "free_tag"};
    return NAMES.contains(name);
}

// For each successful send the call that received the packet; NO_CALL: nobody has.
std::map<std::size_t, std::size_t> receipts_of(const history &whole)
{
    struct journey {
        std::vector<std::size_t> sends;
        std::vector<std::size_t> receipts;
    };
    std::map<sequence::variable, journey> packets;
    for (std::size_t i = 0; i < whole.made.calls.size(); i++) {
        const sequence::call &made = whole.made.calls[i];
        const std::string_view name = name_of(made);
        if (name != "send" && name != "recv") continue;
        if (!has_effect(made, whole.made.answers[i])) continue;
        if (name == "send") {
            packets[made.arguments[1].one().name].sends.push_back(i);
        } else {
            packets[whole.made.answers[i].result.one().name].receipts.push_back(i);
        }
    }
    std::map<std::size_t, std::size_t> receipts;
    for (auto &[name, each] : packets) {
        // Who sends a packet again has received it. What receives it last ends last; it may have
        // begun before.
        const auto begin = [&whole](std::size_t call) { return whole.times[call].begin; };
        const auto end = [&whole](std::size_t call) { return whole.times[call].end; };
        std::ranges::sort(each.sends, {}, begin);
        std::ranges::sort(each.receipts, {}, end);
        for (std::size_t i = 0; i < each.sends.size(); i++) {
            receipts[each.sends[i]] = i < each.receipts.size() ? each.receipts[i] : NO_CALL;
        }
    }
    return receipts;
}

class examination {
public:
    explicit examination(const history &whole) : made_(whole.made), receipts_(receipts_of(whole))
    {
        for (const sequence::call &each : made_.calls) look_at(each);
    }

    influence of(std::size_t index) const
    {
        influence one = parts_of(index);
        // What may fire an event, or report one, is seen by all that may.
        if (has_events_ && (one.reads | one.changes) != 0) one = {EVERYTHING, EVERYTHING};
        if (has_effect(made_.calls[index], made_.answers[index])) return one;
        return {one.reads | one.changes, 0};
    }

private:
    void look_at(const sequence::call &made)
    {
        const std::string_view name = name_of(made);
        if (name.starts_with("event_")) has_events_ = true;
        const bool asks = name.find("count_by") != std::string_view::npos;
        if (name == "bufgroup_set_params" || (asks && made.thread != FIRST_THREAD)) {
            are_accounts_seen_ = true;
        }
        if (name == "register_client" && !made.names.empty()) {
            const std::size_t number = std::min<std::size_t>(queues_.size(), 28);
            queues_.emplace(made.names.front(), FIRST_QUEUE << number);
        }
    }

    influence parts_of(std::size_t index) const
    {
        const sequence::call &made = made_.calls[index];
        const std::string_view name = name_of(made);
        if (is_of_one_thread(name)) return {};
        if (is_account(name)) return {0, are_accounts_seen_ || has_events_ ? ACCOUNTS : 0};
        if (name == "client_ha_role_notify") return {0, ROLES};
        if (changes_holders(name) || name == "is_tag_registered") return {ROLES, HOLDERS};
        if (name == "send") return {HOLDERS | ROLES, queue_of_send(index)};
        if (name == "recv" || name == "queue_is_empty") return {0, queue_of(made)};
        return {EVERYTHING, EVERYTHING};
    }

    std::uint32_t queue_of(const sequence::call &made) const
    {
        const auto found = queues_.find(made.arguments[0].one().name);
        return found == queues_.end() ? ALL_QUEUES : found->second;
    }

    std::uint32_t queue_of_send(std::size_t index) const
    {
        const auto receipt = receipts_.find(index);
        const bool is_known = receipt != receipts_.end() && receipt->second != NO_CALL;
        return is_known ? queue_of(made_.calls[receipt->second]) : ALL_QUEUES;
    }

    const sequence::call_sequence &made_;
    std::map<std::size_t, std::size_t> receipts_;
    std::map<sequence::variable, std::uint32_t> queues_; // of clients
    bool has_events_ = false;
    bool are_accounts_seen_ = false;
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

std::vector<std::vector<std::size_t>> sends_before(const history &whole)
{
    const auto receipts = receipts_of(whole);
    const auto receiver = [&whole](std::size_t call) {
        return whole.made.calls[call].arguments[0].one();
    };
    std::vector<std::vector<std::size_t>> all(whole.times.size());
    for (const auto &[late, late_receipt] : receipts) {
        for (const auto &[early, early_receipt] : receipts) {
            if (early_receipt == NO_CALL || late_receipt == NO_CALL || early == late) continue;
            if (receiver(early_receipt) != receiver(late_receipt)) continue;
            if (whole.times[early_receipt].end < whole.times[late_receipt].begin) {
                all[late].push_back(early);
            }
        }
    }
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
