// SPDX-License-Identifier: MIT
#include "tools/explore/corpus.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "tools/common/usage_error.h"
#include "tools/explore/report.h"
#include "tools/sequence/arguments.h"

namespace explore {

namespace fs = std::filesystem;

namespace {

void make_folder(const std::string &path)
{
    std::error_code error;
    if (!path.empty() && !fs::create_directories(path, error) && error) {
        throw tools::usage_error(path + ": " + error.message());
    }
}

} // namespace

corpus::corpus(std::string sequences, std::string findings)
    : sequences_(std::move(sequences)), findings_(std::move(findings))
{
    make_folder(sequences_);
    make_folder(findings_);
}

std::vector<sequence::call_sequence> corpus::sequences() const
{
    std::vector<sequence::call_sequence> all;
    if (sequences_.empty()) return all;
    std::vector<std::string> files;
    for (const auto &each : fs::directory_iterator(sequences_)) {
        if (each.path().extension() == ".seq") files.push_back(each.path().string());
    }
    std::ranges::sort(files);
    for (const std::string &each : files) {
        all.push_back(sequence::read_file(each));
        if (all.back().calls.empty()) all.pop_back();
    }
    return all;
}

void corpus::keep(const found &one, std::size_t number) const
{
    if (!findings_.empty()) {
        const std::string base = findings_ + "/" + std::to_string(number) + "-" + one.operation;
        sequence::write_file(base + ".seq", one.text);
        sequence::write_file(base + ".c", one.program);
        sequence::write_file(base + ".txt", to_text(one, number));
    }
    if (!sequences_.empty()) {
        sequence::write_file(sequences_ + "/found-" + one.operation + "-" +
                                 std::to_string(one.index) + ".seq",
                             one.text);
    }
}

} // namespace explore
