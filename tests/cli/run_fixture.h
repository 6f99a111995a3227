// SPDX-License-Identifier: MIT
//
// tavor-run from outside, in a folder of its own, with a stand-in for tavor that does what it is
// told to (see fake_tavor.cpp).
#pragma once

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/scratch.h"
#include "tools/common/process.h"

namespace fs = std::filesystem;
using nlohmann::json;

inline std::string content_of(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

inline std::vector<std::string> lines_of(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

// The line of a source that a report names, "file:line".
inline std::string line_at(const std::string &file, int line)
{
    return lines_of(content_of(TAVOR_SOURCE_DIR "/" + file)).at(static_cast<std::size_t>(line - 1));
}

inline int count_of(const std::string &text, const std::string &part)
{
    int count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        count++;
    }
    return count;
}

class run_test : public testing::Test {
protected:
    std::string file(const std::string &name) const { return folder / name; }

    tools::process_options process(std::vector<std::string> arguments) const
    {
        tools::process_options options;
        options.arguments = std::move(arguments);
        options.arguments.insert(options.arguments.begin(), TAVOR_RUN);
        options.environment = {"XDG_STATE_HOME=" + folder.string(), "FAKE_TAVOR=" + script,
                               "LC_ALL=C", "GITHUB_STEP_SUMMARY=" + summary};
        return options;
    }

    tools::process_result tavor_run(const std::vector<std::string> &arguments) const
    {
        return tools::run_process(process(arguments));
    }

    // "run" with the stand-in.
    tools::process_result run(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {"run", "--tavor", FAKE_TAVOR_PROGRAM});
        return tavor_run(arguments);
    }

    // Results in the order in which they were written.
    std::vector<json> results(const std::string &path) const
    {
        std::vector<json> found;
        for (const std::string &line : lines_of(content_of(path))) {
            json parsed = json::parse(line);
            if (parsed.at("type") == "case") {
                found.push_back(parsed);
            }
        }
        return found;
    }
    std::vector<json> last_results() const { return results(file("tavor-run/last.jsonl")); }

    static std::string verdict_of(const std::vector<json> &all, const std::string &name)
    {
        for (const json &each : all) {
            if (each.at("name") == name) {
                return each.at("verdict");
            }
        }
        return "none";
    }

    const support::scratch_folder scratch;
    const fs::path folder = scratch.path();
    std::string script;
    std::string summary; // of a step of GitHub, when there is one
};
