// SPDX-License-Identifier: MIT
//
// Results as JSON, an object a line.
#include <nlohmann/json.hpp>

#include "tools/common/output_file.h"
#include "tools/tavor-run/formats/facts.h"
#include "tools/tavor-run/formats/writer.h"
#include "tools/tavor-run/results/results_file.h"

namespace tavor_run {

namespace {

using nlohmann::json;

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
    json line = {{"type", "case"},         {"name", what.name}, {"suite", what.suite()},
                 {"number", what.number},  {"run", what.run},   {"verdict", name_of(what.state)},
                 {"message", what.message}};
    const explain::place defined = explain::place_of_case(what.name);
    line["file"] = defined.file;
    line["line"] = defined.line;
    if (what.state == verdict::fail) {
        const explain::place check = place_of(what);
        line["check"] = {{"file", check.file}, {"line", check.line}};
    }
    if (what.duration.count() > 0) {
        line["seconds"] = what.seconds();
    }
    if (!what.output.empty()) {
        line["output"] = what.output;
    }
    if (!what.repeat_command.empty()) {
        line["again"] = what.repeat_command;
    }
    if (what.against_baseline != standing::same) {
        line["baseline"] = name_of(what.against_baseline);
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
                     {"format", RESULTS_FORMAT},
                     {"started", record.started},
                     {"command", record.command_line},
                     {"planned", record.planned},
                     {"host", record.identity.host},
                     {"tavor", json_of(record.identity)},
                     {"library", json_of(record.identity.library)}};
        if (!record.identity.settings.empty()) {
            line["settings"] = record.identity.settings;
        }
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
               {"name", what.name},
               {"run", what.run},
               {"message", what.message},
               {"calls", what.calls},
               {"calls_from", what.calls_from},
               {"backtrace", what.backtrace},
               {"left", what.left},
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
        json line = {{"type", "end"}, {"counts", counts}, {"exit", exit_code(record)}};
        if (const auto total = total_time(record.results); total.count() > 0) {
            line["seconds"] = std::chrono::duration<double>(total).count();
        }
        write(line);
    }

private:
    // Messages come from outside and need not be UTF-8; in ASCII nothing can steer a terminal.
    void write(const json &line)
    {
        output.append(line.dump(-1, ' ', true, json::error_handler_t::replace) + "\n");
    }

    tools::output_file output;
};

} // namespace

std::unique_ptr<writer> make_json_writer(const std::string &path)
{
    return std::make_unique<json_writer>(path);
}

} // namespace tavor_run
