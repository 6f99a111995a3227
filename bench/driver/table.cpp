// SPDX-License-Identifier: MIT
#include "bench/driver/table.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <sstream>
#include <stdexcept>

namespace bench {

namespace {

void print_row(std::ostream &out, const std::vector<std::string> &cells)
{
    for (const std::string &cell : cells) {
        out << "| " << cell << ' ';
    }
    out << "|\n";
}

std::vector<double> ratios_of(const std::vector<cost> &runs, const std::vector<cost> &base,
                              double cost::*time)
{
    std::vector<double> ratios;
    ratios.reserve(runs.size());
    for (std::size_t i = 0; i < runs.size(); i++) {
        ratios.push_back(runs[i].*time / (base[i].*time));
    }
    return ratios;
}

} // namespace

void table::print(std::ostream &out) const
{
    print_row(out, rows.front());
    print_row(out, std::vector<std::string>(rows.front().size(), "---"));
    std::for_each(rows.begin() + 1, rows.end(), [&](const auto &row) { print_row(out, row); });
    out << '\n';
}

std::vector<double> times_of(const std::vector<cost> &runs, double cost::*time, double factor)
{
    std::vector<double> times;
    times.reserve(runs.size());
    for (const cost &run : runs) {
        times.push_back(run.*time * factor);
    }
    return times;
}

std::string figure(double value)
{
    constexpr int DIGITS = 3;
    const int before_point =
        value == 0 ? 1 : static_cast<int>(std::floor(std::log10(std::fabs(value)))) + 1;
    std::ostringstream text;
    text << std::fixed << std::setprecision(std::clamp(DIGITS - before_point, 0, DIGITS)) << value;
    return text.str();
}

std::string figures(const std::vector<double> &values)
{
    const summary all = summary_of(values);
    return figure(all.median) + " (" + figure(all.least) + "-" + figure(all.most) + ")";
}

void print_costs(std::ostream &out, const std::vector<measured> &programs, const std::string &base,
                 const std::string &unit, double factor)
{
    const auto is_base = [&](const measured &program) { return program.name == base; };
    const auto beside = std::find_if(programs.begin(), programs.end(), is_base);
    if (beside == programs.end()) throw std::runtime_error("not measured: " + base);

    table rows({"program", "CPU, " + unit, "CPU / " + base, "wall, " + unit, "wall / " + base});
    for (const measured &program : programs) {
        rows.add({program.name, figures(times_of(program.runs, &cost::cpu, factor)),
                  figures(ratios_of(program.runs, beside->runs, &cost::cpu)),
                  figures(times_of(program.runs, &cost::wall, factor)),
                  figures(ratios_of(program.runs, beside->runs, &cost::wall))});
    }
    rows.print(out);
}

} // namespace bench
