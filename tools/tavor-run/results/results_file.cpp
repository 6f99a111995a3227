// SPDX-License-Identifier: MIT
#include "tools/tavor-run/results/results_file.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>

#include "tools/common/json_lines.h"
#include "tools/common/registry.h"

namespace tavor_run {

namespace {

using nlohmann::json;

class results_reader {
public:
    explicit results_reader(const std::string &path) { run.path = path; }

    void take(const json &line)
    {
        const std::string type = line.at("type");
        if (type == "run") {
            take_run(line);
        } else if (type == "case") {
            take_case(line);
        } else if (type == "end") {
            run.has_end = true;
            run.exit_status = line.at("exit");
        }
    }

    stored_run result() { return std::move(run); }

private:
    void take_run(const json &line)
    {
        if (line.at("format") != RESULTS_FORMAT) {
            throw usage_error(run.path + ": of another format");
        }
        run.started = line.at("started");
        run.planned = line.value("planned", std::size_t{0});
        const std::string part = line.value("shard", "");
        if (!part.empty()) {
            run.part = parse_shard(part);
        }
        run.identity.host = line.value("host", ""); // older reports have none
        run.identity.settings = line.value("settings", "");
        const json &tavor = line.at("tavor");
        run.identity.path = tavor.at("path");
        run.identity.target = tavor.at("target");
        run.identity.tree = tavor.at("tree");
        run.identity.image = tavor.at("image");
        const json &library = line.at("library");
        run.identity.library.path = library.at("path");
        run.identity.library.soname = library.at("soname");
        run.identity.library.build_id = library.at("build_id");
        run.identity.library.is_reference = library.at("reference");
    }

    void take_case(const json &line)
    {
        const std::string text = line.at("verdict");
        const auto state = verdict_named(text);
        if (!state) {
            throw usage_error(run.path + ": no verdict: " + text);
        }
        const std::string name = line.at("name");
        const auto [place, is_new] = places.try_emplace(name, run.results.size());
        if (is_new) {
            run.results.emplace_back();
        } else if (*state <= run.results[place->second].state) {
            return;
        }
        const std::chrono::duration<double> seconds(line.value("seconds", 0.0));
        run.results[place->second] = {
            name, *state, line.at("message"),
            std::chrono::duration_cast<std::chrono::microseconds>(seconds)};
    }

    stored_run run;
    std::map<std::string, std::size_t> places;
};

} // namespace

stored_run read_results(const std::string &path)
{
    std::ifstream file(path);
    if (!file) {
        throw usage_error("cannot read " + path);
    }
    results_reader reader(path);
    bool has_start = false;
    const auto take = [&](const json &line, unsigned) {
        has_start |= line.at("type") == "run";
        reader.take(line);
    };
    tools::for_each_json_line(file, take, [&path](tools::damaged_line line) {
        if (!line.is_cut) {
            throw usage_error(path + ":" + std::to_string(line.number) + ": no line of results");
        }
    });
    if (!has_start) {
        throw usage_error(path + ": no results");
    }
    return reader.result();
}

std::vector<std::string> names_to_repeat(const stored_run &run)
{
    std::vector<std::string> names;
    for (const outcome &each : run.results) {
        if (!is_good(each.state) && tools::case_number(each.name) >= 0) {
            names.push_back(each.name);
        }
    }
    return names;
}

std::string default_results_path()
{
    namespace fs = std::filesystem;
    const char *const state = std::getenv("XDG_STATE_HOME");
    const char *const home = std::getenv("HOME");
    fs::path folder;
    if (state != nullptr && *state != '\0') {
        folder = state;
    } else if (home != nullptr && *home != '\0') {
        folder = fs::path(home) / ".local" / "state";
    } else {
        return "";
    }
    return folder / "tavor-run" / "last.jsonl";
}

} // namespace tavor_run
