// SPDX-License-Identifier: MIT
//
// Lists of jobs, and parts of them.
#include "tools/campaign/job_list.h"

#include <fstream>
#include <ostream>
#include <set>
#include <stdexcept>

#include "tools/common/hash.h"

namespace campaign {

namespace {

std::string first_line(std::size_t jobs)
{
    return "# " + std::to_string(jobs) + " jobs";
}

bool holds(const shard &part, const std::string &id)
{
    // The upper half depends on all bytes most.
    return (tools::hash_of(id) >> 32) % part.count == part.index - 1;
}

} // namespace

void write_job_list(std::ostream &out, const std::vector<task> &jobs)
{
    out << first_line(jobs.size()) << '\n';
    for (const task &listed : jobs) {
        out << listed.id << '\n';
    }
}

std::vector<task> read_job_list(const std::string &path, const job_book &book)
{
    std::ifstream stream(path);
    std::string line;
    if (!std::getline(stream, line)) {
        throw std::runtime_error(path + ": cannot be read");
    }
    const std::string header = line;
    std::vector<task> jobs;
    std::set<std::string> ids;
    while (std::getline(stream, line)) {
        const auto refuse = [&](const std::string &reason) {
            throw std::runtime_error(path + ":" + std::to_string(jobs.size() + 2) + ": " + reason);
        };
        if (!ids.insert(line).second) {
            refuse("stands there twice: " + line);
        }
        try {
            jobs.push_back(book.named(line));
        } catch (const std::runtime_error &error) {
            refuse(error.what());
        }
    }
    if (header != first_line(jobs.size())) {
        throw std::runtime_error(path + ": holds " + std::to_string(jobs.size()) +
                                 " jobs, but begins with \"" + header + "\"");
    }
    return jobs;
}

std::vector<task> jobs_of_shard(std::vector<task> jobs, const shard &part)
{
    std::erase_if(jobs, [&](const task &candidate) { return !holds(part, candidate.id); });
    return jobs;
}

} // namespace campaign
