// SPDX-License-Identifier: MIT
//
// The list of faults: what the plan's parser accepts of each operation, and what the library behind
// the shim has.
#include "tools/keltrace/fault_list.h"

#include <cstdio>
#include <dlfcn.h>

#include "tools/keltrace/fault_plan.h"

namespace keltrace {

namespace {

struct form_of_action {
    const char *shown;
    const char *example;
    const char *meaning;
};

constexpr form_of_action FORMS[] = {
    {"error=E", "error=EIO", "not done, and E is returned"},
    {"lost", "lost", "not done, and success is pretended"},
    {"after=E", "after=EIO", "done, then E is returned"},
    {"result=V", "result=0", "done, then V is returned"},
    {"flip=K", "flip=0", "the lowest bit of byte K of the data is changed"},
    {"fail", "fail", "no memory"},
    {"add=V", "add=1", "V microseconds ahead"},
    {"delay=MS", "delay=1", "so many milliseconds pass first"},
    {"nothing", "nothing", "no effect"},
};

constexpr form_of_action FORMS_OF_ARGUMENTS[] = {
    {"arg%zu=V", "=0", "V is stored through the argument"},
    {"arg%zu+=V", "+=0", "V is added to what the argument names"},
    {"arg%zu[N]=V", "[0]=0", "V is stored in the N-th word of the record"},
    {"arg%zu[N]+=V", "[0]+=0", "V is added to the N-th word of the record"},
};

bool is_accepted(const operation_info &target, const std::string &action)
{
    fault_plan plan;
    return parse_plan(std::string(target.name) + "#1:" + action, plan).empty();
}

void list_arguments(const operation_info &target)
{
    for (std::size_t i = 1; i <= target.argument_count; i++) {
        const std::string number = std::to_string(i);
        for (const form_of_action &each : FORMS_OF_ARGUMENTS) {
            if (!is_accepted(target, "arg" + number + each.example)) continue;
            std::string shown = each.shown;
            shown.replace(3, 3, number);
            std::printf("%s:%s\t%s\n", target.name, shown.c_str(), each.meaning);
        }
        std::printf("%s:in%zu=V\tV is passed instead of %s\n", target.name, i,
                    target.arguments[i - 1].name);
    }
}

} // namespace

void list_faults()
{
    for (const operation_info &target : OPERATION_INFO) {
        for (const form_of_action &each : FORMS) {
            if (!is_accepted(target, each.example)) continue;
            std::printf("%s:%s\t%s\n", target.name, each.shown, each.meaning);
        }
        list_arguments(target);
    }
    using list_of_library = void();
    if (auto *list =
            reinterpret_cast<list_of_library *>(dlsym(RTLD_NEXT, "kel_reference_list_faults"))) {
        list();
    }
    std::fflush(nullptr);
}

} // namespace keltrace
