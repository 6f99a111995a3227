// SPDX-License-Identifier: MIT
#include "tests/cli/lava_signals.h"

#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>

namespace lava_signals {

namespace {

class reader {
public:
    void take(const std::string &line)
    {
        if (line.starts_with("# ")) {
            take_comment(line);
            return;
        }
        static const std::regex START("<LAVA_SIGNAL_TESTSET START ([A-Za-z0-9._-]+)>");
        static const std::regex CASE(
            "<LAVA_SIGNAL_TESTCASE TEST_CASE_ID=([A-Za-z0-9._-]+) RESULT=([a-z]+)>");
        std::smatch found;
        if (line == "<LAVA_SIGNAL_TESTSET STOP>") {
            require(output.set_is_open, "no set is open");
            output.set_is_open = false;
        } else if (std::regex_match(line, found, START)) {
            require(!output.set_is_open, "a set is open already");
            output.set_is_open = true;
            output.sets.push_back(found[1]);
        } else if (std::regex_match(line, found, CASE)) {
            take_case(found[1], found[2]);
        } else {
            throw std::runtime_error("neither signal nor comment");
        }
    }

    job_output output;

private:
    static void require(bool holds, const std::string &what)
    {
        if (!holds) {
            throw std::runtime_error(what);
        }
    }

    // The job's reader looks for signals anywhere in a line.
    void take_comment(const std::string &line)
    {
        require(line.find("<LAVA_") == std::string::npos, "a signal in a comment");
        for (const char character : line) {
            require(static_cast<unsigned char>(character) >= ' ', "a control character");
        }
        comments.push_back(line.substr(2));
    }

    void take_case(const std::string &name, const std::string &result)
    {
        static const std::set<std::string> RESULTS = {"pass", "fail", "skip", "unknown"};
        require(output.set_is_open, "a case outside of sets");
        require(RESULTS.contains(result), "no result: " + result);
        const testcase what{output.sets.back(), result, std::move(comments)};
        require(output.cases.emplace(name, what).second, "twice: " + name);
        comments.clear();
    }

    std::vector<std::string> comments;
};

} // namespace

job_output read(const std::string &text)
{
    reader strict;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        try {
            strict.take(line);
        } catch (const std::runtime_error &error) {
            strict.output.complaint = line + ": " + error.what();
            return strict.output;
        }
    }
    if (!text.empty() && text.back() != '\n') {
        strict.output.complaint = "the last line has no end";
    }
    return strict.output;
}

} // namespace lava_signals
