// SPDX-License-Identifier: MIT
#include "tools/tavor-run/diagnose/log.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>

#include "tools/common/json_lines.h"
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

// "get_offset 1: offset=0 -> offset=64" from what explain prints as JSON.
std::string call_of(const nlohmann::json &difference)
{
    return difference.at("operation").get<std::string>() + " " +
           std::to_string(difference.at("n").get<int>()) + ": " +
           difference.at("expected").get<std::string>() + " -> " +
           difference.at("got").get<std::string>();
}

// The same from its text, of which a report has the part about the call.
std::string call_of(const std::string &explanation)
{
    static const std::regex form("first call that differs: the ([0-9]+)[a-z]+ ([a-z0-9_]+).*\n.*\n"
                                 "  (?:([a-z0-9_.\\[\\]]+): )?(?:expected|allowed were:) (.*)[,;] "
                                 "got (.*)\n");
    std::smatch found;
    const std::string start = explanation.substr(0, 2000); // the matcher recurses with its length
    if (!std::regex_search(start, found, form)) return "";
    const std::string part = found[3].matched ? found.str(3) + "=" : "";
    return found.str(2) + " " + found.str(1) + ": " + part + found.str(4) + " -> " + part +
           found.str(5);
}

void set_call(diagnosis::evidence &told, const std::string &name, const std::string &call)
{
    for (diagnosis::sighting &each : told.cases) {
        if (each.case_name == name) each.seen.call = call;
    }
}

// What explain --json has printed: how the case ended, and its call.
void add_explanation(diagnosis::evidence &told, const nlohmann::json &object)
{
    const auto state = verdict_named(object.at("verdict").get<std::string>());
    const std::string name = object.at("case");
    const bool is_known =
        std::ranges::find(told.cases, name, &diagnosis::sighting::case_name) != told.cases.end();
    if (state && !is_known) {
        add(told, name, *state, object.at("message"), "");
        told.is_whole = false; // it does not have what the case prints
    }
    if (!object.at("difference").is_null()) set_call(told, name, call_of(object["difference"]));
}

// Whether there was an explanation among it.
bool add_report(diagnosis::evidence &told, const std::string &text, const std::string &path)
{
    std::istringstream lines(text);
    bool is_explained = false;
    const auto take = [&](const nlohmann::json &object, unsigned) {
        if (object.contains("case") && object.contains("difference")) {
            add_explanation(told, object);
            is_explained = true;
            return;
        }
        const std::string type = object.at("type");
        if (type == "details") {
            set_call(told, object.at("name"), call_of(object.value("explanation", "")));
        }
        if (type != "case") return;
        const std::string judged = object.at("verdict");
        const auto state = verdict_named(judged);
        if (!state) throw usage_error(path + ": no verdict: " + judged);
        add(told, object.at("name").get<std::string>(), *state, object.at("message"),
            object.value("output", ""));
    };
    tools::for_each_json_line(lines, take, [&path](tools::damaged_line line) {
        if (!line.is_cut) {
            throw usage_error(path + ":" + std::to_string(line.number) + ": no line of results");
        }
    });
    return is_explained;
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
        bool is_explained = false;
        if (text.starts_with('{')) {
            is_explained = add_report(told, text, path);
        } else {
            add_console(told, text);
        }
        if (told.cases.size() == before && !is_explained) {
            throw usage_error(path + ": it tells of no case");
        }
    }
    return told;
}

} // namespace tavor_run
