// SPDX-License-Identifier: MIT
#include "tools/sequence/arguments.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

#include "tools/common/numbers.h"
#include "tools/common/shim.h"
#include "tools/common/usage_error.h"
#include "tools/sequence/parser.h"

namespace sequence {

namespace {

namespace fs = std::filesystem;

std::string all_of(std::istream &stream)
{
    return {std::istreambuf_iterator<char>(stream), {}};
}

std::size_t number_in(const std::string &text, std::size_t count)
{
    const auto number = tools::parse_number<std::size_t>(text);
    if (!number) {
        throw tools::usage_error("no number of a call: '" + text + "'");
    }
    if (*number >= count) {
        throw tools::usage_error("no call " + text + ": the sequence has " + std::to_string(count));
    }
    return *number;
}

} // namespace

call_sequence read_file(const std::string &path)
{
    std::string text;
    if (path == "-") {
        text = all_of(std::cin);
    } else {
        std::ifstream stream(path, std::ios::binary);
        if (!stream || fs::is_directory(path)) {
            throw tools::usage_error(path + ": " +
                                     (errno ? std::strerror(errno) : "cannot be read"));
        }
        text = all_of(stream);
    }
    try {
        return from_text(text);
    } catch (const parse_error &error) {
        throw tools::usage_error((path == "-" ? "standard input" : path) + ":" + error.what());
    }
}

void write_file(const std::string &path, const std::string &text)
{
    if (path == "-") {
        std::cout << text << std::flush;
        if (!std::cout) throw tools::usage_error("standard output cannot be written");
        return;
    }
    std::ofstream stream(path, std::ios::binary);
    stream << text << std::flush;
    if (!stream) throw tools::usage_error(path + ": " + std::strerror(errno));
}

std::vector<bool> calls_named(const std::string &list, std::size_t count)
{
    if (list.empty()) return std::vector<bool>(count, true);
    std::vector<bool> named(count, false);
    if (list.back() == ',') throw tools::usage_error("no list of calls: '" + list + "'");
    std::istringstream stream(list);
    for (std::string part; std::getline(stream, part, ',');) {
        const std::size_t dash = part.find('-');
        const std::size_t first = number_in(part.substr(0, dash), count);
        const std::size_t last =
            dash == std::string::npos ? first : number_in(part.substr(dash + 1), count);
        if (last < first) throw tools::usage_error("no range of calls: '" + part + "'");
        for (std::size_t i = first; i <= last; i++) named[i] = true;
    }
    return named;
}

call_sequence part_of(const call_sequence &whole, const std::string &list)
{
    call_sequence part = selection(whole, calls_named(list, whole.calls.size()));
    std::vector<bool> defined(part.variables.size(), false);
    const auto check = [&](const value &given) {
        for (const scalar &each : given.scalars) {
            if (each.name < 0 || defined[static_cast<std::size_t>(each.name)]) continue;
            throw tools::usage_error("the calls need " +
                                     part.variables[static_cast<std::size_t>(each.name)].name +
                                     ", which a call that is left out defines");
        }
    };
    for (const call &each : part.calls) {
        for (const value &given : each.arguments) check(given);
        for (const variable name : each.names) {
            if (name >= 0) defined[static_cast<std::size_t>(name)] = true;
        }
    }
    return part;
}

std::string reference_library(const std::string &named)
{
    if (!named.empty()) return named;
    const fs::path folder = tools::own_folder();
    for (const fs::path &candidate :
         {folder / "../lib/libkel.so", folder / TAVOR_SHIM_FOLDER / "libkel.so"}) {
        if (fs::exists(candidate)) return fs::weakly_canonical(candidate).string();
    }
    throw tools::usage_error("no reference library: name it with --reference");
}

} // namespace sequence
