// SPDX-License-Identifier: MIT
//
// Reading the table of pairs.
#include "tools/campaign/pairs.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "tools/campaign/columns.h"
#include "tools/common/error_names.h"
#include "tools/tavor_output/table.h"

namespace campaign {

namespace {

message_kind kind_named(const std::string &name)
{
    if (name == "plain") {
        return message_kind::plain;
    }
    if (name == "located") {
        return message_kind::located;
    }
    if (name == "errno") {
        return message_kind::error_text;
    }
    if (name == "prefix") {
        return message_kind::prefix;
    }
    throw std::runtime_error("unknown kind of message: " + name);
}

std::string text_of_error(const std::string &name)
{
    const std::uint32_t error = tools::error_number(name);
    if (error == 0) throw std::runtime_error("unknown error name: " + name);
    return std::strerror(static_cast<int>(error));
}

// Of a call that fails in the setting up of a case: the case's message is the text of that error.
pair parse_failing_call(const std::string &test, const std::string &fault)
{
    const std::size_t value = fault.find('=');
    if (value == std::string::npos) throw std::runtime_error("no error in " + fault);
    pair parsed;
    parsed.test = test;
    parsed.kind = message_kind::error_text;
    parsed.message = text_of_error(fault.substr(value + 1));
    parsed.faults = fault;
    return parsed;
}

std::vector<pair> parse_failing_calls(const std::vector<std::string> &columns)
{
    if (columns.size() != 3) throw std::runtime_error("expected: case | errors | faults");
    std::vector<pair> parsed;
    std::istringstream faults(columns[2]);
    for (std::string fault; faults >> fault;) {
        parsed.push_back(parse_failing_call(columns[0], fault));
    }
    if (parsed.empty()) throw std::runtime_error("no faults");
    return parsed;
}

pair parse_pair(const std::vector<std::string> &columns)
{
    if (columns.size() < 4 || columns.size() > 5) {
        throw std::runtime_error("expected: case | kind | message | faults | reason");
    }
    pair parsed;
    parsed.test = columns[0];
    parsed.kind = kind_named(columns[1]);
    parsed.message =
        parsed.kind == message_kind::error_text ? text_of_error(columns[2]) : columns[2];
    if (columns[3] == "-") {
        parsed.unreachable = columns.size() == 5 ? columns[4] : "";
        if (parsed.unreachable.empty()) {
            throw std::runtime_error("a pair without faults needs a reason");
        }
    } else {
        parsed.faults = columns[3];
        if (parsed.faults.empty()) {
            throw std::runtime_error("no faults, and no '-'");
        }
    }
    return parsed;
}

std::vector<pair> parse(const std::string &line)
{
    const std::vector<std::string> columns = columns_of(line);
    if (columns.size() > 1 && columns[1] == "errors") return parse_failing_calls(columns);
    return {parse_pair(columns)};
}

void read_file(const std::filesystem::path &path, std::vector<pair> &pairs)
{
    std::ifstream stream(path);
    if (!stream) {
        throw std::runtime_error(path.string() + ": cannot be read");
    }
    for (const numbered_line &line : meaningful_lines(stream)) {
        try {
            for (pair &parsed : parse(line.text)) {
                parsed.file = path.filename().string();
                parsed.line = line.number;
                pairs.push_back(std::move(parsed));
            }
        } catch (const std::runtime_error &error) {
            throw std::runtime_error(path.filename().string() + ":" + std::to_string(line.number) +
                                     ": " + error.what());
        }
    }
}

} // namespace

std::vector<pair> read_pairs(const std::filesystem::path &folder)
{
    std::vector<std::filesystem::path> files;
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().extension() == ".txt") {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    std::vector<pair> pairs;
    for (const auto &file : files) {
        read_file(file, pairs);
    }
    return pairs;
}

bool shows(const pair &expected, const std::string &message)
{
    if (expected.kind == message_kind::located) {
        const std::string start = "msg='" + expected.message + "' line=";
        return message.starts_with(start) && message.size() > start.size() &&
               message.find_first_not_of("0123456789", start.size()) == std::string::npos;
    }
    if (expected.kind == message_kind::prefix) {
        return message.starts_with(expected.message);
    }
    return message == trimmed(expected.message.substr(0, tavor_output::MESSAGE_WIDTH));
}

} // namespace campaign
