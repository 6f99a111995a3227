// SPDX-License-Identifier: MIT
#include "tools/tavor-run/diagnose/log.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tools/common/registry.h"
#include "tools/tavor-run/console/console_log.h"
#include "tools/tavor-run/run/selection.h"

namespace tavor_run {

namespace {

using diagnosis::ending;

std::set<std::string> lines_of(const std::string &text)
{
    std::set<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        line.erase(line.find_last_not_of(" \t\r") + 1);
        if (!line.empty()) lines.insert(line);
    }
    return lines;
}

// Nothing where the verdict says nothing of the library.
std::optional<diagnosis::outcome> outcome_of(verdict state, const std::string &message,
                                             const std::string &output)
{
    const auto printed = lines_of(output);
    switch (state) {
    case verdict::pass:
    case verdict::ignore:
        return {{ending::good, "", printed}};
    case verdict::fail: // not all reports have more of a message
        return {{ending::fail, message.substr(0, tavor_output::MESSAGE_WIDTH), printed}};
    case verdict::hang:
    case verdict::flood: // which it is depends on the patience of who ran it
        return {{ending::hang, "", printed}};
    case verdict::crash: // "SIGSEGV in this case: ..."
        return {{ending::crash, message.substr(0, message.find(" in this case")), printed}};
    case verdict::unended:
        return {{ending::stopped, "", printed}};
    default:
        return std::nullopt;
    }
}

void add(diagnosis::evidence &told, std::string_view name, verdict state,
         const std::string &message, const std::string &output)
{
    if (tools::case_number(name) < 0 || state == verdict::not_run) return;
    auto seen = outcome_of(state, message, output);
    told.is_whole = told.is_whole && seen && seen->ending != ending::stopped;
    if (seen) told.cases.push_back({std::string(name), std::move(*seen)});
}

void add_report(diagnosis::evidence &told, const std::string &text, const std::string &path)
{
    std::istringstream lines(text);
    unsigned number = 0;
    for (std::string line; std::getline(lines, line);) {
        number++;
        if (lines.eof()) break; // no end of line: whoever wrote it died
        try {
            const auto object = nlohmann::json::parse(line);
            if (object.at("type") != "case") continue;
            const auto state = verdict_named(object.at("verdict").get<std::string>());
            if (!state) throw usage_error(path + ": no verdict: " + line);
            add(told, object.at("name").get<std::string>(), *state, object.at("message"),
                object.value("output", ""));
        } catch (const nlohmann::json::exception &) {
            throw usage_error(path + ":" + std::to_string(number) + ": no line of results");
        }
    }
}

void add_console(diagnosis::evidence &told, const std::string &text)
{
    run_record judged;
    judge_log(text, {}, judged);
    for (const case_result &each : judged.results) {
        add(told, each.name, each.state, each.message, each.output);
    }
}

std::string text_at(const std::string &path)
{
    std::ifstream file;
    if (path != "-") {
        file.open(path, std::ios::binary);
        if (!file || std::filesystem::is_directory(path)) throw usage_error("cannot read " + path);
    }
    std::istream &stream = path == "-" ? std::cin : file;
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

} // namespace

diagnosis::evidence log_of(const std::vector<std::string> &paths)
{
    diagnosis::evidence told;
    for (const std::string &path : paths) {
        const std::string text = text_at(path);
        const std::size_t before = told.cases.size();
        if (text.starts_with('{')) {
            add_report(told, text, path);
        } else {
            add_console(told, text);
        }
        if (told.cases.size() == before) throw usage_error(path + ": it tells of no case");
    }
    return told;
}

} // namespace tavor_run
