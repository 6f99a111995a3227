// SPDX-License-Identifier: MIT
//
// Building all of this: from nothing, and after one suite was touched.
#include <iostream>

#include "bench/driver/cost.h"
#include "bench/driver/parts.h"
#include "bench/driver/table.h"

namespace bench {

namespace {

namespace fs = std::filesystem;

// The largest suite. It goes without its object, as if it had been touched.
const std::string SUITE = "metadata.cpp";

fs::path object_of(const std::string &suite, const fs::path &folder)
{
    for (const auto &entry : fs::recursive_directory_iterator(folder)) {
        if (entry.path().filename() == suite + ".o" &&
            entry.path().parent_path().filename() == "suites") {
            return entry.path();
        }
    }
    throw std::runtime_error("no object of " + suite);
}

} // namespace

void measure_build(std::ostream &out, const settings &how)
{
    const fs::path folder = how.folder / "everything";
    const command build = {"ninja", "-C", folder, "-j", std::to_string(how.jobs)};
    output_of({"cmake", "-S", TAVOR_SOURCE_DIR, "-B", folder, "-G", "Ninja", "-DTAVOR_TESTS=ON",
               "-DTAVOR_CCACHE="});
    std::vector<measured> builds = {
        {"all", {}}, {"all after one suite", {}}, {"tavor", {}}, {"tavor after one suite", {}}};
    const auto run = [&](std::size_t which, const command &what) {
        builds[which].runs.push_back(cost_of_success(what));
    };
    command build_tavor = build;
    build_tavor.emplace_back("tavor");
    for (unsigned repetition = 0; repetition < how.repetitions; repetition++) {
        std::cerr << "build: repetition " << repetition + 1 << " of " << how.repetitions << '\n';
        output_of({"ninja", "-C", folder, "-t", "clean"});
        output_of({"ninja", "-C", folder, "kel"});
        run(2, build_tavor);
        fs::remove(object_of(SUITE, folder));
        run(3, build_tavor);
        output_of({"ninja", "-C", folder, "-t", "clean"});
        run(0, build);
        fs::remove(object_of(SUITE, folder));
        run(1, build);
    }
    out << "## Build\n\n";
    print_costs(out, builds, "all", "s", 1);
}

} // namespace bench
