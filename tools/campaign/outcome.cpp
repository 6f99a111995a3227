// SPDX-License-Identifier: MIT
//
// Judging observations.
#include "tools/campaign/outcome.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <sstream>

#include "tools/common/interface.h"

namespace campaign {

namespace {

bool is_error_text(const std::string &message)
{
    constexpr int LAST_ERROR = 133;
    for (int error = 1; error <= LAST_ERROR; error++) {
        if (message == std::strerror(error)) {
            return true;
        }
    }
    // Numbers without a text of their own, notices among them.
    return message.starts_with("Unknown error ");
}

// Cases that by their nature leave something for a client's deregistration, some of them only
// when they fail.
const std::set<std::string> LEFT_TO_DEREGISTRATION = {
    // A packet.
    "kel_bufgroup_get_bufcount_add_trim",
    "kel_metadata_group_get_null_ptr",
    // Tags, registered or allocated: their clean-up is the clients' deregistration.
    "kel_dyn_tag_free_client",
    "kel_dyn_tag_alloc_dyn_tags",
    "kel_dyn_tag_sendrecv_dyn_tag",
    "kel_dyn_tag_reg_someone_tag",
    "kel_role_basic",
    "kel_role_always",
    // Packets that were sent and not received: they are the receiving client's.
    "kel_sendrecv_select_test",
    "kel_sendrecv_jumbo_mix",
    "kel_sendrecv_non_cont_sendrecv",
    // An event that is still armed: it ends with its client.
    "kel_event_addremove_tag_event",
    "kel_event_addremove_bufgroup_event",
    "kel_event_generic_addremove_event",
    "kel_event_wait_poll",
    "kel_event_wait_timeout",
    "kel_event_wait_tag_event",
    "kel_event_wait_tag_event_via_select",
    "kel_event_wait_tag_event_timeout",
    "kel_event_wait_bufgroup_event",
    "kel_event_wait_bufgroup_event_via_select",
    "kel_event_wait_interrupt",
    "kel_event_wait_registered_tag",
    "kel_event_wait_registered_tag_via_select",
    "kel_event_wait_unregistered_tag",
    "kel_event_wait_unregis_tag_via_select",
};

// A crash or a hang, else nothing that keeps from looking at the verdict.
bool died(const observation &seen, outcome &how)
{
    if (seen.timed_out) {
        how = outcome::hang;
        return true;
    }
    if (seen.signal != 0 || seen.exit_status != 0 || !seen.judged) {
        how = outcome::crash;
        return true;
    }
    return false;
}

} // namespace

const char *name_of(outcome result)
{
    switch (result) {
    case outcome::caught:
        return "CAUGHT";
    case outcome::caught_elsewhere:
        return "CAUGHT ELSEWHERE";
    case outcome::missed:
        return "MISSED";
    case outcome::not_reached:
        return "NOT REACHED";
    case outcome::crash:
        return "CRASH";
    case outcome::hang:
        return "HANG";
    case outcome::leak:
        return "LEAK";
    case outcome::stray_message:
        return "STRAY MESSAGE";
    }
    return "?";
}

outcome judge_pair(const pair &expected, const observation &seen)
{
    outcome how = outcome::missed;
    if (died(seen, how)) {
        return how;
    }
    if (seen.judged == verdict::fail) {
        if (!shows(expected, seen.message)) {
            return outcome::caught_elsewhere;
        }
        return leaves_something(expected.test, seen) ? outcome::leak : outcome::caught;
    }
    return seen.fault_fired ? outcome::missed : outcome::not_reached;
}

outcome judge_any(const std::string &test, const std::vector<pair> &pairs_of_case,
                  const observation &seen)
{
    outcome how = outcome::missed;
    if (died(seen, how)) {
        return how;
    }
    if (seen.judged == verdict::fail) {
        const bool known =
            std::any_of(pairs_of_case.begin(), pairs_of_case.end(), [&](const pair &candidate) {
                return shows(candidate, seen.message) ||
                       (candidate.kind == message_kind::error_text && is_error_text(seen.message));
            });
        if (!known) {
            return outcome::stray_message;
        }
        return leaves_something(test, seen) ? outcome::leak : outcome::caught;
    }
    if (!seen.fault_fired) {
        return outcome::not_reached;
    }
    return leaves_something(test, seen) ? outcome::leak : outcome::missed;
}

bool leaves_something(const std::string &test, const observation &seen)
{
    return std::any_of(seen.left.begin(), seen.left.end(), [&](const std::string &left) {
        return !left.starts_with("released_by_deregistration ") ||
               !LEFT_TO_DEREGISTRATION.contains(test);
    });
}

namespace {

// The shim's own actions have values, but for these.
bool is_librarys(const std::string &fault)
{
    const std::string action = fault.substr(fault.find(':') + 1);
    return action.find('=') == std::string::npos && action != "lost" && action != "nothing" &&
           action != "fail";
}

} // namespace

bool fault_keeps_objects(const experiment &what)
{
    std::istringstream tokens(what.faults);
    for (std::string token; tokens >> token;) {
        if (is_librarys(token)) return true;
        const std::string operation = token.substr(0, token.find('#'));
        const interface::operation_info *known = interface::find_operation(operation);
        // The client that such a registration stores is the case's to release, save where a case
        // deregisters nothing at its end.
        const bool stores_client = token.starts_with("register_client#") &&
                                   token.find(":after=") != std::string::npos &&
                                   what.test != "kel_reg_tag_invalid_client";
        if (known && interface::changes_ownership(*known) && !stores_client) {
            return true;
        }
    }
    return false;
}

} // namespace campaign
