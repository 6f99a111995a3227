// SPDX-License-Identifier: MIT
//
// Writing records and reading them back.
#include "tools/campaign/records.h"

#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

namespace campaign {

namespace {

outcome outcome_named(const std::string &name)
{
    for (const outcome candidate : ALL_OUTCOMES) {
        if (name == name_of(candidate)) {
            return candidate;
        }
    }
    throw std::runtime_error("unknown outcome: " + name);
}

record from_json(const nlohmann::json &read)
{
    record parsed;
    parsed.what.id = read.at("id");
    parsed.what.reached = outcome_named(read.at("outcome"));
    parsed.what.shown = read.at("shown");
    parsed.what.detail = read.at("detail");
    parsed.what.microseconds = read.at("microseconds");
    parsed.of.build = read.at("build");
    parsed.of.library = read.at("library");
    return parsed;
}

bool ends_within_a_line(const std::string &path)
{
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    if (!file || file.tellg() == std::streampos(0)) {
        return false;
    }
    file.seekg(-1, std::ios::end);
    return file.get() != '\n';
}

} // namespace

std::string record_line(const result &written, const subject &of)
{
    const nlohmann::json record = {{"id", written.id},
                                   {"test", written.test},
                                   {"faults", written.faults},
                                   {"expected", written.expected},
                                   {"place", written.place},
                                   {"outcome", name_of(written.reached)},
                                   {"shown", written.shown},
                                   {"detail", written.detail},
                                   {"repeat", written.repeat},
                                   {"explanation", written.explanation},
                                   {"microseconds", written.microseconds},
                                   {"build", of.build},
                                   {"library", of.library}};
    // What a broken program prints need not be UTF-8.
    return record.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + '\n';
}

std::optional<record> parse_record(const std::string &line)
{
    try {
        return from_json(nlohmann::json::parse(line));
    } catch (const std::exception &) {
        return std::nullopt;
    }
}

void read_records(const std::string &path, record_list &list)
{
    std::ifstream stream(path);
    if (!stream || std::filesystem::is_directory(path)) {
        throw std::runtime_error(path + ": cannot be read");
    }
    int number = 0;
    for (std::string line; std::getline(stream, line);) {
        const std::string place = path + ":" + std::to_string(++number);
        if (line.empty()) {
            continue;
        }
        if (std::optional<record> parsed = parse_record(line)) {
            parsed->place = place;
            list.records.push_back(std::move(*parsed));
        } else {
            list.damaged.push_back(place);
        }
    }
}

results_file::results_file(const std::string &path, mode how, subject about)
    : name(path), of(std::move(about))
{
    if (path.empty()) {
        return;
    }
    if (path == "-") {
        out = &std::cout;
        return;
    }
    if (how == mode::resumed && std::filesystem::exists(path)) {
        take_known();
    }
    const bool cut = how != mode::anew && ends_within_a_line(path);
    stream.open(path, how == mode::anew ? std::ios::trunc : std::ios::app);
    if (!stream) {
        throw std::runtime_error(path + ": cannot be written");
    }
    if (cut) {
        stream << '\n';
    }
    out = &stream;
}

void results_file::take_known()
{
    record_list list;
    read_records(name, list);
    for (record &read : list.records) {
        if (read.of != of) {
            throw std::runtime_error(read.place + ": of another tavor, library or table; "
                                                  "without --resume the file is written anew");
        }
        earlier[read.what.id] = std::move(read.what);
    }
}

const result *results_file::known(const std::string &id) const
{
    const auto found = earlier.find(id);
    return found == earlier.end() ? nullptr : &found->second;
}

void results_file::append(const result &added)
{
    if (out) {
        *out << record_line(added, of) << std::flush;
    }
}

void results_file::finish()
{
    if (out && !*out) {
        throw std::runtime_error(name + ": cannot be written");
    }
}

} // namespace campaign
