// SPDX-License-Identifier: MIT
//
// Tables in Markdown.
#pragma once

#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "bench/driver/cost.h"

namespace bench {

class table {
public:
    explicit table(std::vector<std::string> titles) : rows{std::move(titles)} {}
    void add(std::vector<std::string> cells) { rows.push_back(std::move(cells)); }
    void print(std::ostream &out) const;

private:
    std::vector<std::vector<std::string>> rows;
};

// CPU or wall times in the unit that is `factor` times a second.
std::vector<double> times_of(const std::vector<cost> &runs, double cost::*time, double factor);

// With three digits that count.
std::string figure(double value);

// "median (least-most)"
std::string figures(const std::vector<double> &values);

// What each of several programs cost, run by run; all have been run equally often.
struct measured {
    std::string name;
    std::vector<cost> runs;
};

// CPU and wall time in the unit that is `factor` times a second, and their ratios, run by run, to
// what the program named `base` cost.
void print_costs(std::ostream &out, const std::vector<measured> &programs, const std::string &base,
                 const std::string &unit, double factor);

} // namespace bench
