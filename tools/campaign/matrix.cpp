// SPDX-License-Identifier: MIT
//
// Summing up an exhaustive campaign by operation.
#include "tools/campaign/matrix.h"

#include <algorithm>
#include <array>
#include <istream>
#include <map>
#include <ostream>
#include <regex>
#include <set>

#include "tools/common/error_names.h"
#include "tools/common/interface.h"

namespace campaign {

namespace {

// Ways of going wrong, by how the action begins.
struct way {
    std::string_view begins;
    std::string_view title;
};

constexpr std::array<way, 6> WAYS = {{
    {"error=", "refused"},
    {"lost", "work lost"},
    {"after=", "done, but an error"},
    {"result=", "wrong result"},
    {"arg", "wrong out-argument"},
    {"flip=", "damaged data"},
}};

struct cases_of {
    std::set<std::string> tried;
    std::set<std::string> noticed;
};

// "append#3:error=EIO sleep#1+:lost" taken apart; only the first fault counts.
bool take_apart(const std::string &faults, std::string &operation, std::string &call,
                std::string &action)
{
    static const std::regex FORM(R"((\w+)#([0-9]+\+?):(\S+).*)");
    std::smatch parts;
    if (!std::regex_match(faults, parts, FORM)) {
        return false;
    }
    operation = parts[1];
    call = parts[2];
    action = parts[3];
    return true;
}

void print_ways(std::ostream &out, const std::vector<result> &results)
{
    std::map<std::string, std::array<cases_of, WAYS.size()>> table;
    for (const result &judged : results) {
        std::string operation;
        std::string call;
        std::string action;
        if (!take_apart(judged.faults, operation, call, action) ||
            judged.reached == outcome::not_reached) {
            continue;
        }
        for (std::size_t i = 0; i < WAYS.size(); i++) {
            if (action.starts_with(WAYS[i].begins)) {
                table[operation][i].tried.insert(judged.test);
                if (judged.reached == outcome::caught) {
                    table[operation][i].noticed.insert(judged.test);
                }
            }
        }
    }
    out << "| Operation |";
    for (const way &column : WAYS) {
        out << ' ' << column.title << " |";
    }
    out << "\n|---|---|---|---|---|---|---|\n";
    for (const interface::operation_info &row : interface::OPERATIONS) {
        const auto found = table.find(std::string(row.name));
        out << "| `kel_" << row.name << "` |";
        for (std::size_t i = 0; i < WAYS.size(); i++) {
            if (found == table.end() || found->second[i].tried.empty()) {
                out << "  |";
            } else {
                out << ' ' << found->second[i].noticed.size() << " of "
                    << found->second[i].tried.size() << " |";
            }
        }
        out << '\n';
    }
}

void print_errors(std::ostream &out, const std::vector<result> &results,
                  const std::vector<provoked_error> &errors)
{
    std::set<std::string> noticed; // case, operation and call whose other error was caught
    for (const result &judged : results) {
        std::string operation;
        std::string call;
        std::string action;
        if (judged.reached == outcome::caught &&
            take_apart(judged.faults, operation, call, action) && action.starts_with("error=")) {
            noticed.insert(judged.test + " " + operation + " " + call);
        }
    }
    std::map<std::pair<std::string, std::string>, std::map<std::string, bool>> table;
    for (const provoked_error &provoked : errors) {
        const bool exact = noticed.contains(provoked.test + " " + provoked.operation + " " +
                                            std::to_string(provoked.call));
        table[{provoked.operation, provoked.error}][provoked.test] |= exact;
    }
    out << "| Operation | Error | Judged exactly by | Provoked only by |\n|---|---|---|---|\n";
    for (const auto &[key, cases] : table) {
        std::array<std::string, 2> lists;
        for (const auto &[test, exact] : cases) {
            std::string &list = lists[exact ? 0 : 1];
            list += (list.empty() ? "" : " ") + test;
        }
        out << "| `kel_" << key.first << "` | `" << key.second << "` | " << lists[0] << " | "
            << lists[1] << " |\n";
    }
}

} // namespace

std::vector<provoked_error> errors_in_trace(const std::string &test, std::istream &trace)
{
    static const std::regex FORM(R"(\d+ t\d+ kel_(\w+)\(.*\) = (\w+)( \[.*)?)");
    std::vector<provoked_error> errors;
    std::map<std::string, unsigned> calls;
    for (std::string line; std::getline(trace, line);) {
        std::smatch parts;
        if (!std::regex_match(line, parts, FORM)) {
            continue;
        }
        const unsigned call = ++calls[parts[1]];
        if (tools::error_number(parts[2].str()) != 0) {
            errors.push_back({test, parts[1], call, parts[2]});
        }
    }
    return errors;
}

void print_matrix(std::ostream &out, const std::vector<result> &results,
                  const std::vector<provoked_error> &errors)
{
    out << "## Which ways of going wrong make cases fail\n\n"
           "For each operation, in how many of the cases that call it at least one call that goes "
           "wrong in\nthis way makes the case fail. Empty: the way does not apply, or no case calls "
           "the operation.\n\n";
    print_ways(out, results);
    out << "\n## Which errors cases provoke\n\n"
           "Errors that a right library returns while a case runs. Judged exactly: the case fails "
           "when the\ncall returns another error instead.\n\n";
    print_errors(out, results, errors);
}

} // namespace campaign
