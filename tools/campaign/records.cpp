// SPDX-License-Identifier: MIT
//
// Writing records and reading them back.
#include "tools/campaign/records.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <utility>

#include "tools/common/json_lines.h"
#include "tools/common/output_file.h"

namespace campaign {

namespace {

// Nothing for an unknown name.
std::optional<outcome> outcome_named(const std::string &name)
{
    for (const outcome candidate : ALL_OUTCOMES) {
        if (name == name_of(candidate)) {
            return candidate;
        }
    }
    return std::nullopt;
}

// Nothing when the object is no record; throws as the JSON library does when something is missing.
std::optional<record> from_json(const nlohmann::json &read)
{
    const auto reached = outcome_named(read.at("outcome"));
    if (!reached) {
        return std::nullopt;
    }
    record parsed;
    parsed.what.id = read.at("id");
    parsed.what.reached = *reached;
    parsed.what.shown = read.at("shown");
    parsed.what.detail = read.at("detail");
    parsed.what.microseconds = read.at("microseconds");
    parsed.of.build = read.at("build");
    parsed.of.library = read.at("library");
    return parsed;
}

bool ends_within_a_line(int file, off_t size)
{
    char last = '\n';
    return size > 0 && pread(file, &last, 1, size - 1) == 1 && last != '\n';
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
    return record.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace) + '\n';
}

void read_records(const std::string &path, record_list &list)
{
    std::ifstream stream(path);
    if (!stream || std::filesystem::is_directory(path)) {
        throw std::runtime_error(path + ": cannot be read");
    }
    const auto place = [&path](unsigned number) { return path + ":" + std::to_string(number); };
    const auto take = [&](const nlohmann::json &object, unsigned number) {
        if (std::optional<record> parsed = from_json(object)) {
            parsed->place = place(number);
            list.records.push_back(std::move(*parsed));
        } else {
            list.damaged.push_back(place(number));
        }
    };
    tools::for_each_json_line(stream, take, [&](tools::damaged_line line) {
        list.damaged.push_back(place(line.number));
    });
}

results_file::results_file(const std::string &path, mode how, subject about)
    : name(path), of(std::move(about))
{
    if (path.empty()) {
        return;
    }
    if (path == "-") {
        descriptor = STDOUT_FILENO;
        return;
    }
    opened.reset(open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
    descriptor = opened.get();
    if (descriptor < 0) {
        throw_cannot_write();
    }
    // Several may add lines, but none while another counts on what is there.
    const int kind = how == mode::added_to ? LOCK_SH : LOCK_EX;
    if (flock(descriptor, kind | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        throw std::runtime_error(path + ": another campaign writes it");
    }
    if (how == mode::resumed) {
        take_known();
    }
    struct stat about_file = {};
    const bool is_regular = fstat(descriptor, &about_file) == 0 && S_ISREG(about_file.st_mode);
    if (how == mode::anew) {
        if (is_regular && ftruncate(descriptor, 0) != 0) {
            throw_cannot_write();
        }
    } else if (is_regular && ends_within_a_line(descriptor, about_file.st_size)) {
        write("\n");
    }
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
    if (descriptor >= 0) {
        write(record_line(added, of));
    }
}

void results_file::write(const std::string &text) const
{
    if (!tools::write_all(descriptor, text)) {
        throw_cannot_write();
    }
}

void results_file::throw_cannot_write() const
{
    throw std::runtime_error(name + ": cannot be written: " + std::strerror(errno));
}

} // namespace campaign
