// SPDX-License-Identifier: MIT
//
// What turns results into one kind of report, while they come.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tools/tavor-run/results/results.h"

namespace tavor_run {

class writer {
public:
    writer() = default;
    writer(const writer &) = delete;
    writer &operator=(const writer &) = delete;
    virtual ~writer() = default;

    virtual void begin(const run_record &) {}
    virtual void started(const run_record &, int /*row*/) {}
    virtual void result(const run_record &, const case_result &) = 0;
    // A result has got its calls or its full message.
    virtual void details(const run_record &, const case_result &) {}
    virtual void note(const run_record &, const std::string &) {}
    virtual void end(const run_record &) = 0;
};

struct text_style {
    bool colours = false;
    bool live = false;  // a line that tells which case runs
    bool quiet = false; // only what is not good
};

std::unique_ptr<writer> make_text_writer(const std::string &path, const text_style &style);
std::unique_ptr<writer> make_junit_writer(const std::string &path);
std::unique_ptr<writer> make_tap_writer(const std::string &path, int version);
std::unique_ptr<writer> make_json_writer(const std::string &path);
std::unique_ptr<writer> make_html_writer(const std::string &path);
std::unique_ptr<writer> make_lava_writer(const std::string &path);
std::unique_ptr<writer> make_github_writer(const std::string &path);

// Keeps the record and tells all writers. One that cannot write is told of and left out from then
// on; with the last that was asked for its exception is thrown on.
class reporter {
public:
    explicit reporter(run_record start) : kept(std::move(start)) {}

    void add(std::unique_ptr<writer> which, bool is_asked_for = true)
    {
        writers.push_back({std::move(which), is_asked_for});
    }

    void begin();
    void started(int row);
    void result(case_result what);
    void details(const case_result &what);
    void note(const std::string &text);
    // A note of something beside the cases that went wrong: the run is incomplete.
    void trouble(const std::string &text);
    void end();

    run_record &record() { return kept; }

private:
    struct told_writer {
        std::unique_ptr<writer> which;
        bool is_asked_for;
    };

    template <typename Told> void tell(Told told);
    void drop(std::size_t place, const std::string &why);

    run_record kept;
    std::vector<told_writer> writers;
};

} // namespace tavor_run
