// SPDX-License-Identifier: MIT
//
// Which faults apply to which operation.
#include "tools/campaign/plan.h"

#include <algorithm>

#include "tools/common/interface.h"

namespace campaign {

namespace {

using interface::argument_kind;
using interface::operation_info;
using interface::result_kind;

// The system's calls that the shim can make fail, with the ways in which they do.
const std::vector<std::pair<std::string, std::vector<std::string>>> SYSTEM_FAULTS = {
    {"malloc", {"fail"}},
    {"calloc", {"fail"}},
    {"pthread_create", {"error=EAGAIN"}},
    {"select", {"error=EBADF", "error=EINTR", "result=0"}},
    {"open", {"error=ENOENT"}},
    {"ioctl", {"error=EIO", "result=0"}},
};

// The program's own preparation, not a case's call.
constexpr std::string_view UNTOUCHED = "nocrash_set";

bool stores_an_error(const operation_info &which)
{
    return which.find(argument_kind::out_error) >= 0;
}

std::vector<std::string> actions_for_result(const operation_info &which)
{
    switch (which.result) {
    case result_kind::error:
        return {"error=EIO", "lost", "after=EIO"};
    case result_kind::new_packet:
    case result_kind::new_buffer:
        if (stores_an_error(which)) {
            return {"error=EIO", "result=0", "result=0x12345678", "after=EIO"};
        }
        return {"error=EIO", "result=0", "result=0x12345678"};
    case result_kind::boolean:
        return {"result=0", "result=1"};
    case result_kind::nothing:
        return {"lost"};
    default:
        return {"result=0", "result=1", "result=0xffffffff"};
    }
}

// Numbers that are stored, but no addresses and no handles of new objects.
bool is_stored_number(argument_kind kind)
{
    const interface::argument_info &stored = info(kind);
    const bool is_new = stored.effect == interface::effect::obtains &&
                        (stored.object == interface::object::client ||
                         stored.object == interface::object::bufgroup);
    const bool is_address =
        stored.form == interface::form::address || kind == argument_kind::out_code_address;
    return stored.direction != interface::direction::in && stored.scalar_target && !is_new &&
           !is_address && kind != argument_kind::out_error;
}

std::vector<std::string> actions_for(const operation_info &which)
{
    std::vector<std::string> actions = actions_for_result(which);
    for (std::size_t i = 0; i < which.argument_count; i++) {
        const argument_kind kind = which.arguments[i].kind;
        if (is_stored_number(kind)) {
            const std::string argument = "arg" + std::to_string(i + 1);
            actions.push_back(argument + "=0");
            actions.push_back(argument + "+=1");
        }
        if (kind == argument_kind::source || kind == argument_kind::destination) {
            actions.insert(actions.end(), {"flip=0", "flip=-1"});
        }
    }
    return actions;
}

// Those of an operation of the library or the system that cases may see go wrong.
std::vector<std::string> actions_named(const std::string &operation)
{
    const operation_info *known = interface::find_operation(operation);
    if (known && operation != UNTOUCHED) {
        return actions_for(*known);
    }
    const auto found = std::find_if(SYSTEM_FAULTS.begin(), SYSTEM_FAULTS.end(),
                                    [&](const auto &row) { return row.first == operation; });
    return found == SYSTEM_FAULTS.end() ? std::vector<std::string>{} : found->second;
}

void add_calls(const std::string &operation, unsigned count, const plan_limits &limits,
               const std::vector<std::string> &actions, std::vector<std::string> &faults)
{
    for (unsigned call = 1; call <= count; call++) {
        if (call > limits.calls_at_each_end && call + limits.calls_at_each_end <= count) {
            continue;
        }
        for (const std::string &action : actions) {
            faults.push_back(operation + "#" + std::to_string(call) + ":" + action);
        }
    }
    // The same from the first call on. A wait that is always interrupted never ends: no library
    // does that.
    for (const std::string &action : actions) {
        if (count > 1 && action != "error=EINTR") {
            faults.push_back(operation + "#1+:" + action);
        }
    }
}

} // namespace

std::vector<std::string> faults_for(const std::map<std::string, unsigned> &calls,
                                    const plan_limits &limits)
{
    std::vector<std::string> faults;
    const auto count_of = [&](const std::string &operation) {
        const auto found = calls.find(operation);
        return found == calls.end() ? 0u : found->second;
    };
    for (const operation_info &which : interface::OPERATIONS) {
        const std::string name(which.name);
        if (name != UNTOUCHED) {
            add_calls(name, count_of(name), limits, actions_for(which), faults);
        }
    }
    for (const auto &[name, actions] : SYSTEM_FAULTS) {
        add_calls(name, count_of(name), limits, actions, faults);
    }
    return faults;
}

bool is_plannable(const std::string &fault)
{
    const std::size_t hash = fault.find('#');
    const std::size_t colon = fault.find(':');
    if (hash == std::string::npos || colon == std::string::npos || colon < hash) {
        return false;
    }
    const std::string operation = fault.substr(0, hash);
    const std::string call = fault.substr(hash + 1, colon - hash - 1);
    const std::string action = fault.substr(colon + 1);
    const std::size_t digits = std::min(call.find_first_not_of("0123456789"), call.size());
    const bool is_call = call[0] != '0' && digits != 0 && digits < 10 && digits == call.size();
    const std::vector<std::string> actions = actions_named(operation);
    return (call == "1+" || is_call) &&
           std::find(actions.begin(), actions.end(), action) != actions.end();
}

} // namespace campaign
