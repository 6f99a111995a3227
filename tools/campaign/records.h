// SPDX-License-Identifier: MIT
//
// Results as they come: a file with one JSON object a line. A line that was cut, by a crash or a
// lost connection, is never taken for a result.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "tools/campaign/results.h"
#include "tools/campaign/subject.h"
#include "tools/common/unique_fd.h"

namespace campaign {

struct record {
    result what; // without what its job says of it
    subject of;
    std::string place{}; // file and line
};

struct record_list {
    std::vector<record> records;
    std::vector<std::string> damaged; // places of lines that are no records
};

// One line, with its end.
std::string record_line(const result &written, const subject &of);

// Adds what the file holds. Throws std::runtime_error when it cannot be read.
void read_records(const std::string &path, record_list &list);

// Where a run puts its results.
class results_file {
public:
    enum class mode {
        anew,    // what is there is overwritten
        resumed, // what is there is known, and added to
        added_to
    };

    // An empty path writes nothing, "-" to standard output. Throws std::runtime_error when the file
    // cannot be written, another campaign writes it, or it is resumed and about something else.
    results_file(const std::string &path, mode how, subject about);

    // The result of an earlier run of the same campaign, or null.
    const result *known(const std::string &id) const;

    // A whole line at once. Throws std::runtime_error when it cannot be written.
    void append(const result &added);

private:
    void take_known();
    void write(const std::string &text) const;
    [[noreturn]] void throw_cannot_write() const;

    std::string name;
    subject of;
    std::unordered_map<std::string, result> earlier;
    tools::unique_fd opened;
    int descriptor = -1;
};

} // namespace campaign
