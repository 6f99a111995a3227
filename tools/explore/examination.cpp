// SPDX-License-Identifier: MIT
#include "tools/explore/examination.h"

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

#include "tools/explain/clauses.h"
#include "tools/sequence/export_c.h"
#include "tools/sequence/printer.h"
#include "tools/sequence/reduction.h"
#include "tools/sequence/report.h"

namespace explore {

namespace {

using sequence::call_sequence;

// Up to the last call that has an answer.
call_sequence cut_off(call_sequence made)
{
    std::vector<bool> kept(made.calls.size(), false);
    std::fill_n(kept.begin(), made.answers.size(), true);
    made.answers.resize(made.calls.size());
    return selection(made, kept);
}

// Numbers without meaning of their own are the same to a reader: 17 of 64 bytes, 3 of 64.
std::string class_of(const std::string &value)
{
    if (value.size() < 2) return value;
    if (value.find(" at byte ") != std::string::npos) return "data";
    std::string kind;
    for (const char each : value) {
        if (std::isdigit(static_cast<unsigned char>(each)) == 0) {
            kind += each;
        } else if (kind.empty() || kind.back() != '#') {
            kind += '#';
        }
    }
    return kind;
}

std::string allowed_text(const sequence::finding &shown)
{
    std::string text;
    for (const std::string &each : shown.allowed) text += (text.empty() ? "" : ", ") + each;
    return text.empty() ? shown.difference.expected : text;
}

// `made` has the answers that the contract asks for.
found described(call_sequence made, std::size_t guilty, const sequence::finding &shown)
{
    const auto &which = sequence::schema_of(made.calls[guilty].operation);
    const std::string part = shown.difference.part == "result" ? "" : shown.difference.part + "=";
    found one;
    one.operation = which.name;
    one.part = shown.difference.part;
    one.n = ordinal_of(made, guilty);
    one.expected = part + allowed_text(shown);
    one.got = part + shown.difference.got;
    one.clause = explain::clause_of(which.function);
    one.calls = made.calls.size();
    one.program = to_c(made);
    made.closing_comments = {" " + expectation_text(shown)};
    one.text = to_text(made, sequence::printed::calls_and_answers);
    return one;
}

} // namespace

std::string key_of(const found &one)
{
    return one.operation + "/" + one.part + "/" + class_of(one.expected) + "/" + class_of(one.got);
}

examined examine(const call_sequence &given, const examination_setup &how,
                 const std::function<void(const examined &)> &early)
{
    call_sequence made = given;
    made.answers = run_one(made, {{how.library}}, how.allowed);
    if (made.answers.empty()) return {};
    made = cut_off(std::move(made));
    made.header.library = how.library;
    const auto judged = judge(made, how.reference, how.allowed, {how.learned.chosen});
    const sequence::configuration &explains = judged.profile.front();
    if (!judged.finding && explains == how.learned.chosen) return {};
    if (!judged.finding && agrees(how.learned, explains, how.reference, how.allowed)) {
        return {outcome::choice, false, {}, explains};
    }
    // A library that has answered otherwise before cannot change its mind.
    const sequence::configuration &kept = judged.finding ? explains : how.learned.chosen;
    auto shown = judged.finding;
    if (!shown) {
        call_sequence expected = made;
        expected.answers = run_one(
            made, {sequence::reference_setup(how.reference, how.learned.chosen)}, how.allowed);
        shown = first_difference(expected, made);
    }
    if (!shown) return {};
    const bool came_twice =
        is_same(made, run_one(made, {{how.library}}, how.allowed), made.answers);
    const examined whole{outcome::finding, false, described(made, shown->call, *shown), {}};
    if (came_twice) early(whole);
    auto smallest = reduce(made, *shown, {{how.library}, how.reference, kept, how.allowed});
    if (!smallest) {
        // It may depend on what threads of the library do meanwhile, which no answer does.
        const bool is_end = made.answers.back().outcome != sequence::outcome::returned;
        return came_twice && is_end ? whole : examined{};
    }
    const std::size_t guilty = smallest->finding.call;
    return {outcome::finding, false, described(std::move(smallest->made), guilty, *shown), {}};
}

std::string to_message(const examined &one)
{
    nlohmann::json message;
    message["outcome"] = static_cast<int>(one.outcome);
    message["profile"] = one.profile;
    const found &what = one.finding;
    message["finding"] = {what.operation, what.part,  what.n,    what.expected, what.got,
                          what.clause,    what.calls, what.text, what.program};
    return message.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

examined from_message(const std::string &text)
{
    const auto message = nlohmann::json::parse(text, nullptr, false);
    examined one;
    if (message.is_discarded()) return one;
    one.outcome = static_cast<outcome>(message["outcome"].get<int>());
    one.profile = message["profile"].get<sequence::configuration>();
    const auto &what = message["finding"];
    one.finding = {what[0], what[1], what[2], what[3], what[4], what[5], what[6], what[7], what[8]};
    return one;
}

} // namespace explore
