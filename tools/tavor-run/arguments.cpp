// SPDX-License-Identifier: MIT
#include "tools/tavor-run/arguments.h"

#include <filesystem>
#include <iostream>
#include <limits>
#include <random>
#include <set>

#include "tools/common/loader.h"
#include "tools/common/printable.h"
#include "tools/common/registry.h"
#include "tools/common/shim.h"
#include "tools/tavor-run/results/results_file.h"
#include "tools/tavor-run/run/selection.h"

namespace tavor_run {

namespace {

namespace fs = std::filesystem;

// The program beside this one, else the one in PATH.
std::string default_tavor()
{
    const fs::path beside = tools::own_folder() / "tavor";
    std::error_code error;
    return fs::exists(beside, error) ? beside.string() : "tavor";
}

} // namespace

launch_options launch_options_of(const launch_arguments &given)
{
    launch_options options;
    options.through = given.through;
    options.library_folder = given.library_folder;
    options.traced_calls = given.traced_calls;
    options.census = given.census;
    options.tavor = given.tavor;
    options.shim = given.shim;
    const bool here = given.through.empty();
    if (options.tavor.empty()) {
        options.tavor = here ? default_tavor() : "tavor";
    }
    if (here && !given.library_folder.empty() &&
        !fs::exists(fs::path(given.library_folder) / "libkel.so")) {
        throw usage_error("--lib: no libkel.so in " + given.library_folder);
    }
    if (here && options.shim.empty()) {
        options.shim = tools::find_shim(tools::found_in_path(options.tavor));
    }
    if (given.census && options.shim.empty()) {
        throw usage_error("--census: name libkeltrace.so with --shim");
    }
    if (here && !options.shim.empty() && (options.traced_calls > 0 || given.census)) {
        const std::string why = tools::why_not_preloaded(options.shim);
        if (!why.empty() && (!given.shim.empty() || given.census)) {
            throw usage_error("--shim: " + why);
        }
        if (!why.empty()) {
            std::cerr << "tavor-run: no library calls are shown: " << tools::printable(why) << "\n";
            options.shim.clear();
        }
    }
    return options;
}

run_options run_options_of(const run_arguments &given)
{
    run_options options;
    const double milliseconds = 1000 * given.launch.timeout * given.launch.timeout_scale;
    if (!(milliseconds >= 0) || milliseconds > std::numeric_limits<int>::max()) {
        throw usage_error("no sensible time-out");
    }
    options.timeout = std::chrono::milliseconds(static_cast<int>(milliseconds));
    options.print_limit = std::size_t{given.launch.print_limit} << 20;
    options.isolate = given.launch.isolate || given.launch.census;
    options.fail_fast = given.fail_fast;
    options.until_fail = given.until_fail;
    options.repeat = given.repeat.value_or(given.until_fail ? 0 : 1);
    if (options.repeat == 0 && !options.until_fail) {
        throw usage_error("0 repetitions mean without end: only with --until-fail");
    }
    return options;
}

std::string results_path(const selection_arguments &given)
{
    return given.last.empty() ? default_results_path() : given.last;
}

std::vector<int> selected_rows(const selection_arguments &given)
{
    std::vector<int> rows = select_cases(given.terms);
    if (given.failed) {
        const std::vector<std::string> names = names_to_repeat(read_results(results_path(given)));
        const std::set<std::string> wanted(names.begin(), names.end());
        std::erase_if(rows, [&](int row) {
            return !wanted.contains(
                std::string(tools::all_cases()[static_cast<std::size_t>(row)].name));
        });
        if (rows.empty()) {
            throw usage_error("none of these failed the last time");
        }
    }
    return given.shard.empty() ? rows : rows_of_shard(rows, parse_shard(given.shard));
}

std::optional<std::uint64_t> seed_of(const std::string &text)
{
    if (text.empty()) {
        return std::nullopt;
    }
    if (text == "random") {
        constexpr unsigned SEEDS = 1'000'000; // short enough to be typed
        return std::random_device()() % SEEDS;
    }
    std::size_t end = 0;
    try {
        const std::uint64_t seed = std::stoull(text, &end);
        if (end == text.size() && text[0] != '-') {
            return seed;
        }
    } catch (const std::exception &) { // told below
    }
    throw usage_error("no seed: " + text);
}

void check_library(const launch_arguments &given, const library_identity &library)
{
    if (!given.library_folder.empty() && !library.path.empty() &&
        !tools::is_from(library.path, given.library_folder)) {
        throw usage_error("--lib: the loader takes " + library.path);
    }
    if (given.closed && !library.was_read) {
        throw usage_error("--closed: which library tavor loads cannot be seen");
    }
    if (given.closed && library.is_reference) {
        throw usage_error("--closed: " + library.path + " is the reference library");
    }
}

} // namespace tavor_run
