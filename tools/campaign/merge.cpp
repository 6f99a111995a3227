// SPDX-License-Identifier: MIT
//
// Whatever the order of the records, the same comes out.
#include "tools/campaign/merge.h"

#include <algorithm>
#include <ostream>
#include <set>
#include <tuple>
#include <unordered_map>

namespace campaign {

namespace {

using records_by_id = std::unordered_map<std::string, std::vector<const record *>>;

// Where none is known to be right, the first by name is it.
std::string expected_library(const subject &expected, const record_list &list)
{
    std::string library = expected.library;
    if (library.empty()) {
        for (const record &read : list.records) {
            if (read.of.build == expected.build && (library.empty() || read.of.library < library)) {
                library = read.of.library;
            }
        }
    }
    return library;
}

// Why a record is none of these tasks; empty when it is one.
std::string foreignness(const record &read, const subject &expected, const records_by_id &wanted)
{
    if (read.of.build != expected.build) {
        return "of another tavor, shim or table";
    }
    if (read.of.library != expected.library) {
        return "of another library";
    }
    return wanted.contains(read.what.id) ? "" : "no job of this campaign";
}

bool agree(const record &left, const record &right)
{
    return left.what.reached == right.what.reached && left.what.shown == right.what.shown;
}

std::string contradiction(const std::string &id, const std::vector<const record *> &records)
{
    std::set<std::string> seen;
    for (const record *read : records) {
        const std::string shown = read->what.shown.empty() ? "" : " \"" + read->what.shown + "\"";
        seen.insert(name_of(read->what.reached) + shown + " (" + read->place + ")");
    }
    std::string text = id + ":";
    for (const std::string &one : seen) {
        text += (text.ends_with(':') ? " " : ", ") + one;
    }
    return text;
}

} // namespace

merged merge_records(const setting &where, const std::vector<task> &tasks, const subject &expected,
                     const record_list &list)
{
    const subject known{expected.build, expected_library(expected, list)};
    merged made;
    made.damaged = list.damaged;
    records_by_id by_id;
    for (const task &wanted : tasks) {
        by_id[wanted.id];
    }
    for (const record &read : list.records) {
        const std::string reason = foreignness(read, known, by_id);
        if (reason.empty()) {
            by_id[read.what.id].push_back(&read);
        } else {
            made.foreign.push_back(read.place + ": " + reason + ": " + read.what.id);
        }
    }
    for (const task &wanted : tasks) {
        const std::vector<const record *> &records = by_id[wanted.id];
        if (records.empty()) {
            made.missing.push_back(wanted.id);
        } else if (!std::all_of(records.begin(), records.end(), [&](const record *other) {
                       return agree(*records.front(), *other);
                   })) {
            made.contradicting.push_back(contradiction(wanted.id, records));
        } else {
            const record *chosen = *std::min_element(
                records.begin(), records.end(), [](const record *left, const record *right) {
                    return std::tie(left->what.detail, left->what.microseconds) <
                           std::tie(right->what.detail, right->what.microseconds);
                });
            made.results.push_back(restored(where, wanted, chosen->what));
        }
    }
    return made;
}

void print_gaps(std::ostream &out, const merged &merging, std::size_t tasks)
{
    const auto print_all = [&](const char *kind, const std::vector<std::string> &names) {
        for (const std::string &name : names) {
            out << kind << ": " << name << '\n';
        }
    };
    print_all("damaged", merging.damaged);
    print_all("foreign", merging.foreign);
    print_all("contradicting", merging.contradicting);
    print_all("missing", merging.missing);
    if (!merging.is_whole()) {
        out << "no table: of " << tasks << " jobs " << merging.missing.size()
            << " have no result and " << merging.contradicting.size() << " several, "
            << merging.foreign.size() << " records belong to something else\n";
    }
}

} // namespace campaign
