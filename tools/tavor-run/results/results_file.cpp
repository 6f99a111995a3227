// SPDX-License-Identifier: MIT
#include "tools/tavor-run/results/results_file.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>

#include "tools/common/output_file.h"
#include "tools/common/registry.h"
#include "tools/tavor-run/formats/writer.h"

namespace tavor_run {

namespace {

using nlohmann::json;

constexpr int FORMAT = 1;

json json_of(const program_identity &identity)
{
    return {{"path", identity.path},
            {"target", identity.target},
            {"tree", identity.tree},
            {"image", identity.image}};
}

json json_of(const library_identity &identity)
{
    return {{"path", identity.path},
            {"soname", identity.soname},
            {"build_id", identity.build_id},
            {"reference", identity.is_reference}};
}

json json_of(const case_result &what)
{
    json line = {{"type", "case"},
                 {"name", what.name()},
                 {"suite", what.suite()},
                 {"number", what.number},
                 {"run", what.run},
                 {"verdict", name_of(what.state)},
                 {"message", what.message},
                 {"seconds", std::chrono::duration<double>(what.duration).count()}};
    if (!what.output.empty()) {
        line["output"] = what.output;
    }
    if (!what.repeat_command.empty()) {
        line["again"] = what.repeat_command;
    }
    if (!what.difference.empty()) {
        line["difference"] = what.difference;
    }
    return line;
}

class json_writer : public writer {
public:
    explicit json_writer(const std::string &path) : output(path) {}

    void begin(const run_record &record) override
    {
        json line = {{"type", "run"},
                     {"format", FORMAT},
                     {"started", record.started},
                     {"command", record.command_line},
                     {"planned", record.planned},
                     {"host", record.identity.host},
                     {"tavor", json_of(record.identity)},
                     {"library", json_of(record.identity.library)}};
        if (record.seed) {
            line["seed"] = *record.seed;
        }
        if (!record.part.empty()) {
            line["shard"] = record.part;
        }
        write(line);
    }

    void result(const run_record &, const case_result &what) override { write(json_of(what)); }

    void details(const run_record &, const case_result &what) override
    {
        write({{"type", "details"},
               {"name", what.name()},
               {"run", what.run},
               {"message", what.message},
               {"calls", what.calls},
               {"calls_from", what.calls_from},
               {"explanation", what.explanation}});
    }

    void note(const run_record &, const std::string &text) override
    {
        write({{"type", "note"}, {"text", text}});
    }

    void end(const run_record &record) override
    {
        json counts = json::object();
        const tally all = count(record.results);
        for (std::size_t i = 0; i < all.size(); i++) {
            counts[std::string(name_of(static_cast<verdict>(i)))] = all[i];
        }
        write({{"type", "end"}, {"counts", counts}, {"exit", exit_code(record)}});
    }

private:
    // Messages come from outside and need not be UTF-8; in ASCII nothing can steer a terminal.
    void write(const json &line)
    {
        output.append(line.dump(-1, ' ', true, json::error_handler_t::replace) + "\n");
    }

    tools::output_file output;
};

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
        if (line.at("format") != FORMAT) {
            throw usage_error(run.path + ": of another format");
        }
        run.started = line.at("started");
        run.planned = line.value("planned", std::size_t{0});
        const std::string part = line.value("shard", "");
        if (!part.empty()) {
            run.part = parse_shard(part);
        }
        run.identity.host = line.value("host", ""); // older reports have none
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
        run.results[place->second] = {name, *state, line.at("message"), line.value("seconds", 0.0)};
    }

    stored_run run;
    std::map<std::string, std::size_t> places;
};

} // namespace

std::unique_ptr<writer> make_json_writer(const std::string &path)
{
    return std::make_unique<json_writer>(path);
}

stored_run read_results(const std::string &path)
{
    std::ifstream file(path);
    if (!file) {
        throw usage_error("cannot read " + path);
    }
    results_reader reader(path);
    bool has_start = false;
    unsigned number = 0;
    for (std::string line; std::getline(file, line);) {
        number++;
        if (file.eof()) { // no end of line: whoever wrote it died
            break;
        }
        try {
            const json parsed = json::parse(line);
            has_start |= parsed.at("type") == "run";
            reader.take(parsed);
        } catch (const json::exception &) {
            throw usage_error(path + ":" + std::to_string(number) + ": no line of results");
        }
    }
    if (!has_start) {
        throw usage_error(path + ": no results");
    }
    return reader.result();
}

std::vector<std::string> names_to_repeat(const stored_run &run)
{
    std::vector<std::string> names;
    for (const stored_result &each : run.results) {
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
