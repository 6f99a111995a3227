// SPDX-License-Identifier: MIT
#include "tools/explore/profile.h"

#include <algorithm>
#include <fstream>

#include "tools/common/usage_error.h"
#include "tools/explore/questions.h"
#include "tools/sequence/comparison.h"
#include "tools/sequence/parser.h"

namespace explore {

namespace {

using sequence::answers;
using sequence::call_sequence;
using sequence::configuration;

configuration with(configuration base, const sequence::option &which, const std::string &value)
{
    base.erase(which.name);
    if (value != which.default_value) base[which.name] = value;
    return base;
}

class learner {
public:
    learner(std::string library, std::string reference, const sequence::limits &allowed)
        : library_(std::move(library)), reference_(std::move(reference)), allowed_(allowed),
          options_(sequence::options_of(reference_))
    {
    }

    library_profile run(const configuration &given)
    {
        learned_.chosen = given;
        std::vector<const question *> open;
        for (const question &each : questions()) open.push_back(&each);
        // Some answers depend on choices that are found out later.
        for (bool goes_on = true; goes_on && !open.empty();) {
            const std::size_t before = open.size();
            std::erase_if(open, [this](const question *each) { return is_answered(*each); });
            goes_on = open.size() < before;
        }
        for (const question *each : open) {
            learned_.unexplained.push_back(sequence_of(each->text));
        }
        const auto device = learned_.known.find("device");
        learned_.has_device = device == learned_.known.end() || device->second != "0";
        return std::move(learned_);
    }

private:
    // False when the library's answers are those of none of the values.
    bool is_answered(const question &asked)
    {
        const auto which = std::ranges::find(options_, asked.option, &sequence::option::name);
        if (which == options_.end()) return true;
        call_sequence made = sequence_of(asked.text);
        std::vector<std::string> values = which->others;
        values.insert(values.begin(), which->default_value);
        std::vector<sequence::job> jobs{{{library_}}};
        for (const std::string &each : values) {
            jobs.push_back(
                {sequence::reference_setup(reference_, with(learned_.chosen, *which, each))});
        }
        auto given = run_all(made, jobs, allowed_);
        std::vector<std::string> agreeing;
        for (std::size_t i = 0; i < values.size(); i++) {
            if (is_same(made, given[i + 1], given[0])) agreeing.push_back(values[i]);
        }
        if (agreeing.empty()) return false;
        // Several values may answer alike here; then others cannot tell them apart either.
        if (agreeing.size() < values.size()) {
            learned_.known[which->name] = agreeing.front();
            learned_.chosen = with(learned_.chosen, *which, agreeing.front());
            made.answers = std::move(given[0]);
            learned_.evidence.push_back(std::move(made));
        }
        return true;
    }

    std::string library_;
    std::string reference_;
    sequence::limits allowed_;
    std::vector<sequence::option> options_;
    library_profile learned_;
};

} // namespace

bool is_same(const call_sequence &made, const answers &expected, const answers &got)
{
    if (expected.size() != got.size()) return false;
    for (std::size_t i = 0; i < got.size(); i++) {
        if (compare(made.calls[i], expected[i], got[i], made.variables)) return false;
    }
    return true;
}

call_sequence sequence_of(const char *calls)
{
    constexpr const char *FIRST = "sequence version=1 library=\"\" program=\"\"\nnocrash_set()";
    return sequence::from_text(std::string(FIRST) + calls);
}

library_profile learn(const std::string &library, const std::string &reference,
                      const configuration &given, const sequence::limits &allowed)
{
    return learner(library, reference, allowed).run(given);
}

bool agrees(const library_profile &learned, const configuration &chosen,
            const std::string &reference, const sequence::limits &allowed)
{
    return std::ranges::all_of(learned.evidence, [&](const call_sequence &each) {
        const auto given = run_one(each, {sequence::reference_setup(reference, chosen)}, allowed);
        return is_same(each, given, each.answers);
    });
}

configuration read_profile(const std::string &path, const std::string &reference)
{
    std::ifstream file(path);
    if (!file) throw tools::usage_error("cannot read " + path);
    const auto options = sequence::options_of(reference);
    configuration chosen;
    for (std::string word; file >> word;) {
        const std::size_t equals = word.find('=');
        const auto which =
            std::ranges::find(options, word.substr(0, equals), &sequence::option::name);
        if (equals == std::string::npos || which == options.end()) {
            throw tools::usage_error(path + ": no choice: " + word);
        }
        const std::string value = word.substr(equals + 1);
        if (value != which->default_value &&
            std::ranges::find(which->others, value) == which->others.end()) {
            throw tools::usage_error(path + ": no value of that choice: " + word);
        }
        chosen = with(chosen, *which, value);
    }
    return chosen;
}

} // namespace explore
