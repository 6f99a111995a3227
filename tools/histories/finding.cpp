// SPDX-License-Identifier: MIT
#include "tools/histories/finding.h"

#include <cctype>
#include <map>
#include <nlohmann/json.hpp>

#include "tools/common/process.h"
#include "tools/explain/clauses.h"
#include "tools/sequence/printer.h"

namespace histories {

namespace {

using json = nlohmann::ordered_json;
using sequence::call_sequence;

std::string without_numbers(const std::string &text)
{
    std::string kept;
    for (const char each : text) {
        if (std::isdigit(static_cast<unsigned char>(each)) == 0) kept += each;
    }
    return kept;
}

// " 12-15 @2 send(client1, packet1) -> 0"
std::string comment_of(const history &whole, std::size_t index)
{
    const sequence::call &made = whole.made.calls[index];
    const interval &time = whole.times[index];
    std::string text = " " + std::to_string(time.begin) + "-" + std::to_string(time.end) + " " +
                       sequence::thread_text(made.thread) +
                       sequence::call_text(made, whole.made.variables, false);
    const std::string given =
        sequence::answer_text(made, whole.made.answers[index], whole.made.variables);
    return given.empty() ? text : text + " -> " + given;
}

std::vector<std::string> comments_of(const history &whole, const misfit &refused)
{
    const std::string part =
        refused.difference.part == "result" ? "" : refused.difference.part + "=";
    std::vector<std::string> all = {" in no order: expected " + part + refused.difference.expected +
                                    ", got " + part + refused.difference.got};
    all.emplace_back(" what the threads called from when to when:");
    for (std::size_t i = 0; i < whole.times.size(); i++) {
        if (whole.made.calls[i].thread != FIRST_THREAD || i == refused.call) {
            all.push_back(comment_of(whole, i));
        }
    }
    return all;
}

void name_operation(found &one, sequence::operation which)
{
    const auto &schema = sequence::schema_of(which);
    one.operation = schema.name;
    one.clause = explain::clause_of(schema.function);
}

// What a thread has begun, with names for what its slots may have held.
class planned_calls {
public:
    explicit planned_calls(const plan &planned) : planned_(planned)
    {
        made_.variables = planned.variables;
        for (const sequence::call &each : planned.before) made_.add(each);
    }

    void add(std::size_t thread, const progress::of_thread &shown)
    {
        slot_names names = planned_.held[thread];
        for (std::size_t i = 0; i < planned_.threads[thread].size(); i++) {
            if (!shown.are_begun[i]) continue;
            const step &each = planned_.threads[thread][i];
            sequence::call made = each.made;
            for (const slot_use &use : each.uses) {
                made.arguments[use.argument] = named(names[use.slot]);
            }
            if (each.fills >= 0) {
                if (made.names.empty()) made.names = {received()};
                names[static_cast<std::size_t>(each.fills)] = made.names.front();
            }
            const bool is_usable = std::ranges::none_of(
                each.uses, [&](const slot_use &use) { return names[use.slot] < 0; });
            if (is_usable) made_.add(std::move(made));
        }
    }

    call_sequence take() { return std::move(made_); }

private:
    sequence::variable received()
    {
        made_.variables.push_back(
            {"received" + std::to_string(++received_), sequence::role::packet});
        return static_cast<sequence::variable>(made_.variables.size() - 1);
    }

    const plan &planned_;
    call_sequence made_;
    int received_ = 0;
};

} // namespace

std::string found::kind() const
{
    return operation + "/" + part + "/" + without_numbers(expected) + "/" + without_numbers(got);
}

found finding_of(const history &whole, const verdict &judged)
{
    const misfit &refused = judged.misfits.front();
    call_sequence made;
    made.variables = whole.made.variables;
    for (const std::size_t each : judged.path) {
        made.add(whole.made.calls[each]);
        made.answers.push_back(whole.made.answers[each]);
    }
    made.add(whole.made.calls[refused.call]);
    made.answers.push_back(refused.expected);
    made.closing_comments = comments_of(whole, refused);

    found one;
    name_operation(one, made.calls.back().operation);
    one.n = ordinal_of(made, made.calls.size() - 1);
    one.part = refused.difference.part;
    one.expected = refused.difference.expected;
    one.got = refused.difference.got;
    one.calls = made.calls.size();
    one.text = to_text(made, sequence::printed::calls_and_answers);
    return one;
}

found finding_of(const plan &planned, const progress &last, bool is_hang, int signal)
{
    found one;
    one.part = "result";
    one.expected = "a return";
    one.got = is_hang ? "hang" : signal == 0 ? "exit" : "crash " + tools::signal_name(signal);
    planned_calls begun(planned);
    std::vector<std::string> comments = {" " + one.got +
                                         "; the calls that the threads had begun, one "
                                         "thread after the other; under way were:"};
    for (std::size_t i = 0; i <= planned.threads.size(); i++) {
        const auto &thread = last.threads[i];
        if (i > 0) begun.add(i - 1, thread);
        if (!thread.is_calling) continue;
        if (one.operation.empty()) name_operation(one, thread.operation);
        comments.push_back(" " + sequence::thread_text(static_cast<std::uint16_t>(i + 1)) +
                           std::string(sequence::schema_of(thread.operation).name));
    }
    call_sequence made = begun.take();
    made.closing_comments = std::move(comments);
    for (const sequence::call &each : made.calls) {
        if (sequence::schema_of(each.operation).name == one.operation) one.n++;
    }
    one.calls = made.calls.size();
    one.text = to_text(made, sequence::printed::calls);
    return one;
}

std::string to_message(const found &one)
{
    const json message = {{"operation", one.operation}, {"n", one.n},      {"part", one.part},
                          {"expected", one.expected},   {"got", one.got},  {"clause", one.clause},
                          {"calls", one.calls},         {"text", one.text}};
    return message.dump(-1, ' ', false, json::error_handler_t::replace);
}

found found_from_message(std::string_view message)
{
    const json read = json::parse(message);
    found one;
    one.operation = read.at("operation");
    one.n = read.at("n");
    one.part = read.at("part");
    one.expected = read.at("expected");
    one.got = read.at("got");
    one.clause = read.at("clause");
    one.calls = read.at("calls");
    one.text = read.at("text");
    return one;
}

} // namespace histories
