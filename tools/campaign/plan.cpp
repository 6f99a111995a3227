// SPDX-License-Identifier: MIT
//
// Which faults apply to which operation.
#include "tools/campaign/plan.h"

#include <algorithm>

#include "tools/common/operations.h"

namespace campaign {

namespace {

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

bool stores_an_error(const tools::operation &which)
{
    return !which.arguments.empty() && which.arguments.back().kind->name == "out_error";
}

void add_for_results(const tools::operation &which, std::vector<std::string> &actions)
{
    if (which.result == "error") {
        actions.insert(actions.end(), {"error=EIO", "lost", "after=EIO"});
    } else if (which.result.starts_with("new_")) {
        actions.insert(actions.end(), {"error=EIO", "result=0", "result=0x12345678"});
        if (stores_an_error(which)) {
            actions.emplace_back("after=EIO");
        }
    } else if (which.result == "boolean") {
        actions.insert(actions.end(), {"result=0", "result=1"});
    } else if (which.result != "nothing") {
        actions.insert(actions.end(), {"result=0", "result=1", "result=0xffffffff"});
    } else {
        actions.emplace_back("lost");
    }
}

bool is_number(const tools::argument_kind &kind)
{
    return kind.direction != "in" && kind.name != "out_error" &&
           (kind.type == "uint32_t *" || kind.type == "uint16_t *" || kind.type == "uint64_t *" ||
            kind.type == "kel_buffer *" || kind.type == "kel_tag *");
}

void add_for_arguments(const tools::operation &which, std::vector<std::string> &actions)
{
    for (std::size_t i = 0; i < which.arguments.size(); i++) {
        const tools::argument_kind &kind = *which.arguments[i].kind;
        const std::string argument = "arg" + std::to_string(i + 1);
        if (is_number(kind)) {
            actions.push_back(argument + "=0");
            actions.push_back(argument + "+=1");
        }
        if (kind.name == "source" || kind.name == "destination") {
            actions.insert(actions.end(), {"flip=0", "flip=-1"});
        }
    }
}

std::vector<std::string> actions_for(const tools::operation &which)
{
    std::vector<std::string> actions;
    add_for_results(which, actions);
    add_for_arguments(which, actions);
    return actions;
}

// Those of an operation of the library or the system that cases may see go wrong.
std::vector<std::string> actions_named(const std::string &operation)
{
    const tools::operation *known = tools::find_operation(operation);
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
    for (const tools::operation &which : tools::all_operations()) {
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
