// SPDX-License-Identifier: MIT
//
// The combinations cannot all be run. The search begins with the defaults; where they answer
// otherwise than the library, those with one switch changed are run up to that call, then those
// with two, and the ones that agree with everything so far are gone on with.
#include "tools/sequence/oracle.h"

#include <algorithm>
#include <set>
#include <sstream>

#include "tools/common/usage_error.h"
#include "tools/sequence/printer.h"

namespace sequence {

namespace {

// What fills memory that nobody has written. A library may leave there what it likes, so they are
// no choices that tell libraries apart; they tell which data means nothing: where the answers under
// both differ, as they do in every byte.
const configuration CONTENT = {{"unwritten_byte", "90"}};
const configuration SHADOW = {
    {"poison_byte", "90"}, {"first_tlv_byte", "165"}, {"unwritten_byte", "165"}};

std::vector<std::string> split(const std::string &text, char separator)
{
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
    return parts;
}

// The same calls, with more time for waits that others' calls ended: how soon those come is no
// matter of the library.
call_sequence patient(call_sequence made)
{
    constexpr std::uint64_t SECONDS = 5;
    for (const step &each : made.steps) {
        if (each.phase != phase::begin || !made.has_answers()) continue;
        const operation_schema &which = schema_of(made.calls[each.call].operation);
        const answer &given = made.answers[each.call];
        if (given.outcome != outcome::returned) continue;
        const bool timed_out = has_timed_out(made.calls[each.call], given);
        for (std::size_t i = 0; i < which.parameters.size() && !timed_out; i++) {
            value &timeout = made.calls[each.call].arguments[i];
            if (which.parameters[i].name == "timeout" && timeout.kind == value_kind::record) {
                timeout.scalars[0].number += SECONDS;
            }
        }
    }
    return made;
}

class search {
public:
    search(const call_sequence &recorded, std::string reference, const limits &allowed)
        : recorded_(recorded), made_(patient(recorded)), reference_(std::move(reference)),
          allowed_(allowed)
    {
    }

    verdict run(const std::vector<configuration> &known)
    {
        std::vector<configuration> alive = known;
        while (true) {
            auto [longest, calls] = best_of(alive, recorded_.calls.size());
            if (calls >= recorded_.answers.size()) return finished(std::move(longest));
            // The one that comes furthest decides; the others drop out at their first difference.
            alive = extended(longest, calls);
            if (alive.empty()) return failed(std::move(longest), calls);
        }
    }

private:
    // The first call whose answer differs; the number of calls when none does.
    std::size_t agreement(const answers &expected, const answers *shadow)
    {
        for (std::size_t i = 0; i < recorded_.answers.size(); i++) {
            if (recorded_.answers[i].outcome == outcome::unreturned && i >= expected.size()) {
                return recorded_.answers.size();
            }
            if (i < expected.size() && expected[i].outcome == outcome::unreturned) continue;
            if (i >= expected.size() || differs(i, expected, shadow)) return i;
            if (expected[i].outcome != outcome::returned) return recorded_.answers.size();
        }
        return recorded_.answers.size();
    }

    bool differs(std::size_t index, const answers &expected, const answers *shadow) const
    {
        return compare(recorded_.calls[index], expected[index], recorded_.answers[index],
                       recorded_.variables, shadow_at(shadow, index))
            .has_value();
    }

    static const answer *shadow_at(const answers *shadow, std::size_t index)
    {
        return shadow != nullptr && index < shadow->size() ? &(*shadow)[index] : nullptr;
    }

    struct attempt {
        configuration chosen;
        answers expected;
        answers shadow;
        std::size_t agreed = 0;
    };

    // Runs each up to `end`, with its shadow.
    std::vector<attempt> try_all(const std::vector<configuration> &chosen, std::size_t end,
                                 const limits &allowed)
    {
        std::vector<job> jobs;
        for (const configuration &each : chosen) {
            jobs.push_back({content_setup(reference_, each), end});
            jobs.push_back({shadow_setup(reference_, each), end});
        }
        auto results = run_all(made_, jobs, allowed);
        std::vector<attempt> all;
        for (std::size_t i = 0; i < chosen.size(); i++) {
            attempt one{chosen[i], std::move(results[2 * i]), std::move(results[2 * i + 1])};
            one.agreed = agreement(one.expected, &one.shadow);
            all.push_back(std::move(one));
        }
        return all;
    }

    std::pair<std::vector<attempt>, std::size_t> best_of(const std::vector<configuration> &chosen,
                                                         std::size_t end)
    {
        std::vector<attempt> all = try_all(chosen, end, allowed_);
        std::size_t most = 0;
        for (const attempt &each : all) most = std::max(most, each.agreed);
        std::erase_if(all, [most](const attempt &each) { return each.agreed < most; });
        return {std::move(all), most};
    }

    // Those with one more switch changed, else with two, that agree with the call, too.
    std::vector<configuration> extended(const std::vector<attempt> &from, std::size_t index)
    {
        // A wait needs the calls that end it.
        const bool is_overlapped = begun_until_return(recorded_, index) > index + 1;
        const std::size_t end = is_overlapped ? recorded_.calls.size() : index + 1;
        // Where the reference library hangs it mostly does so under all of them.
        const limits hurried{std::min(allowed_.call, std::chrono::milliseconds(300))};
        std::vector<configuration> last;
        for (const attempt &each : from) last.push_back(each.chosen);
        for (int changes = 1; changes <= MOST_CHANGES; changes++) {
            std::set<configuration> next;
            for (const configuration &each : last) add_changed(next, each);
            last.assign(next.begin(), next.end());
            std::vector<configuration> agreeing;
            std::vector<attempt> tried = try_all(last, end, hurried);
            for (attempt &each : tried) {
                if (each.agreed > index) agreeing.push_back(each.chosen);
                if (changes == 1 && each.agreed >= index) alternatives_.push_back(std::move(each));
            }
            if (!agreeing.empty()) {
                alternatives_.clear();
                return agreeing;
            }
            // Of pairs only those whose first change made no difference before.
            std::erase_if(last, [&](const configuration &one) {
                return std::none_of(tried.begin(), tried.end(), [&](const attempt &each) {
                    return each.chosen == one && each.agreed >= index &&
                           changes_answer(each, from.front(), index);
                });
            });
        }
        return {};
    }

    bool changes_answer(const attempt &one, const attempt &base, std::size_t index) const
    {
        for (std::size_t i = 0; i <= index; i++) {
            if (i >= one.expected.size() || i >= base.expected.size()) return true;
            if (compare(recorded_.calls[i], base.expected[i], one.expected[i],
                        recorded_.variables)) {
                return true;
            }
        }
        return false;
    }

    void add_changed(std::set<configuration> &all, const configuration &base)
    {
        for (const option &each : options()) {
            if (SHADOW.contains(each.name) || base.contains(each.name)) continue;
            for (const std::string &value : each.others) {
                configuration changed = base;
                changed[each.name] = value;
                all.insert(std::move(changed));
            }
        }
    }

    verdict finished(std::vector<attempt> last)
    {
        verdict passed;
        for (attempt &each : last) passed.profile.push_back(each.chosen);
        passed.expected = std::move(last.front().expected);
        passed.shadow = std::move(last.front().shadow);
        return passed;
    }

    verdict failed(std::vector<attempt> last, std::size_t index)
    {
        verdict refused;
        finding found;
        found.call = index;
        const attempt &first = last.front();
        const call &made = recorded_.calls[index];
        if (index < first.expected.size()) {
            if (auto told = compare(made, first.expected[index], recorded_.answers[index],
                                    recorded_.variables, shadow_at(&first.shadow, index))) {
                found.difference = *told;
            }
        } else {
            found.difference = {"result", "no call: the reference library did not come so far",
                                answer_text(made, recorded_.answers[index], recorded_.variables)};
        }
        for (const attempt &each : last) refused.profile.push_back(each.chosen);
        add_allowed(found, last, index);
        add_allowed(found, alternatives_, index);
        refused.finding = std::move(found);
        refused.expected = std::move(last.front().expected);
        refused.shadow = std::move(last.front().shadow);
        return refused;
    }

    // What the combinations answer there, of the part that differs.
    void add_allowed(finding &found, const std::vector<attempt> &from, std::size_t index) const
    {
        for (const attempt &each : from) {
            if (index >= each.expected.size()) continue;
            const auto told =
                compare(recorded_.calls[index], each.expected[index], recorded_.answers[index],
                        recorded_.variables, shadow_at(&each.shadow, index));
            if (!told || told->part != found.difference.part) continue;
            if (std::find(found.allowed.begin(), found.allowed.end(), told->expected) ==
                found.allowed.end()) {
                found.allowed.push_back(told->expected);
            }
        }
    }

    const std::vector<option> &options()
    {
        if (options_.empty()) options_ = options_of(reference_);
        return options_;
    }

    static constexpr int MOST_CHANGES = 2;

    const call_sequence &recorded_;
    const call_sequence made_;
    std::string reference_;
    limits allowed_;
    std::vector<option> options_;
    std::vector<attempt> alternatives_;
};

} // namespace

std::vector<option> options_of(const std::string &library)
{
    const std::string listed =
        printed_when_loaded({library, {"KEL_REFERENCE_LIST=options", "KEL_REFERENCE_OPTIONS"}});
    std::vector<option> all;
    for (const std::string &line : split(listed, '\n')) {
        const auto columns = split(line, '\t');
        if (columns.size() < 3) continue;
        all.push_back({columns[0], columns[1], split(columns[2], ',')});
    }
    if (all.empty()) throw tools::usage_error(library + " lists no options: no reference library");
    return all;
}

std::string text_of(const configuration &one)
{
    std::string text;
    for (const auto &[name, value] : one) {
        text += (text.empty() ? "" : " ") + name + "=" + value;
    }
    return text;
}

library_setup reference_setup(const std::string &library, const configuration &chosen)
{
    return {
        library,
        {"KEL_REFERENCE_OPTIONS=" + text_of(chosen), "KEL_REFERENCE_FAULTS", "KEL_REFERENCE_LIST"}};
}

library_setup content_setup(const std::string &library, configuration chosen)
{
    chosen.insert(CONTENT.begin(), CONTENT.end());
    return reference_setup(library, chosen);
}

library_setup shadow_setup(const std::string &library, configuration chosen)
{
    chosen.insert(SHADOW.begin(), SHADOW.end());
    return reference_setup(library, chosen);
}

std::vector<answer> shadow_for(const call_sequence &made, const std::string &reference,
                               const limits &allowed)
{
    const auto right =
        run_all(made, {{content_setup(reference, {})}, {shadow_setup(reference, {})}}, allowed);
    std::vector<answer> shadow = made.answers;
    shadow.resize(std::min({shadow.size(), right[0].size(), right[1].size()}));
    for (std::size_t i = 0; i < shadow.size(); i++) {
        for (std::size_t j = 0; j < shadow[i].stored.size(); j++) {
            std::string &bytes = shadow[i].stored[j].bytes;
            const std::string &first = right[0][i].stored[j].bytes;
            const std::string &second = right[1][i].stored[j].bytes;
            if (bytes.size() != first.size() || bytes.size() != second.size()) continue;
            for (std::size_t k = 0; k < bytes.size(); k++) {
                if (first[k] != second[k]) bytes[k] = static_cast<char>(~bytes[k]);
            }
        }
    }
    return shadow;
}

verdict judge(const call_sequence &recorded, const std::string &reference, const limits &allowed,
              const std::vector<configuration> &known)
{
    return search(recorded, reference, allowed).run(known);
}

} // namespace sequence
