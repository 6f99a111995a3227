// SPDX-License-Identifier: MIT
#include "tools/tavor-run/console/console_log.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "tools/common/registry.h"

namespace tavor_run {

namespace {

verdict state_of(tavor_output::verdict printed)
{
    switch (printed) {
    case tavor_output::verdict::pass:
        return verdict::pass;
    case tavor_output::verdict::ignore:
        return verdict::ignore;
    default:
        return verdict::fail;
    }
}

std::string_view without_returns(std::string_view line)
{
    while (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    while (line.starts_with('\r')) {
        line.remove_prefix(1);
    }
    return line;
}

bool is_blank(std::string_view text)
{
    return text.find_first_not_of(" \t") == std::string_view::npos;
}

// After the names in one of tavor's formats.
constexpr std::string_view ZEB = " 0 ";

// How much of what a case prints is kept, and how much when it was good.
constexpr std::size_t KEPT_OF_GOOD = 1 << 14;

// How much of a line a pattern sees: the library's matcher recurses with the length of the text.
constexpr std::size_t PATTERN_REACH = 1000;

std::string claim_text(verdict state, const std::string &message)
{
    return state == verdict::fail   ? "FAIL : " + message
           : state == verdict::pass ? "PASS"
                                    : "IGNORE";
}

} // namespace

log_reader::log_reader(log_options how, log_events events)
    : options(std::move(how)), handlers(std::move(events)), positions(tools::all_cases().size(), -1)
{
    if (options.expected.empty()) {
        options.expected.resize(positions.size());
        std::iota(options.expected.begin(), options.expected.end(), 0);
    }
    int position = 0;
    for (const int row : options.expected) {
        positions[static_cast<std::size_t>(row)] = position++;
    }
}

void log_reader::feed(std::string_view piece)
{
    arrived = sighting::clock::now();
    for (std::size_t end; (end = piece.find('\n')) != std::string_view::npos;) {
        line_number++;
        if (pending.empty()) {
            take_line(without_returns(piece.substr(0, end)));
        } else {
            keep_pending(piece.substr(0, end));
            take_line(without_returns(pending));
            pending.clear();
        }
        pending_is_open = false;
        piece.remove_prefix(end + 1);
    }
    keep_pending(piece);
    look_ahead();
}

// A line that is longer than any of tavor's is no verdict, however it ends.
void log_reader::keep_pending(std::string_view piece)
{
    constexpr std::size_t LONGEST_LINE = 1 << 16;
    constexpr std::string_view CUT = " ...";
    const std::size_t room = LONGEST_LINE - std::min(LONGEST_LINE, pending.size());
    pending += piece.substr(0, room);
    if (room > 0 && piece.size() >= room) {
        pending += CUT;
    }
}

// tavor writes a name out before the case runs: it counts before its line has ended.
void log_reader::look_ahead()
{
    if (pending_is_open) {
        return;
    }
    const stamped_line line = split_stamp(without_returns(pending));
    if (const auto row = tavor_output::row_in_name_column(line.rest)) {
        line_number++;
        open(*row, line.style);
        line_number--;
        pending_is_open = true;
    }
}

void log_reader::finish()
{
    const stamped_line last = split_stamp(without_returns(pending));
    std::string_view rest = last.rest;
    if (pending_is_open) {
        rest.remove_prefix(tavor_output::NAME_COLUMN + 1);
        rest.remove_prefix(rest.starts_with(ZEB) ? ZEB.size() : 0);
    }
    if (current && !current->has_verdict && !is_blank(rest) && !is_foreign({last.style, rest})) {
        if (tavor_output::begins_verdict(rest) || tavor_output::shows_verdict(rest) ||
            ZEB.starts_with(rest)) {
            damage("the log ends within its line");
        } else {
            current->output.append(rest);
        }
    }
    pending.clear();
    pending_is_open = false;
    end_run();
}

void log_reader::take_line(std::string_view line)
{
    if (is_blank(line)) {
        return;
    }
    const stamped_line parts = split_stamp(line);
    if (const auto row = tavor_output::row_in_name_column(parts.rest)) {
        if (!pending_is_open) {
            open(*row, parts.style);
        }
        take_behind_name(parts.rest.substr(tavor_output::NAME_COLUMN + 1));
    } else if (tavor_output::is_header(parts.rest)) {
        seen_tavor = true;
        end_run();
    } else if (const auto count = tavor_output::parse_summary(parts.rest)) {
        take_summary(*count);
    } else if (!tavor_output::is_rule(parts.rest) && !is_foreign(parts)) {
        take_text(parts);
    }
}

bool log_reader::is_foreign(const stamped_line &line) const
{
    const stamp_style own = current ? current->style : stamp_style::none;
    const std::string_view start = line.rest.substr(0, PATTERN_REACH);
    return (line.style == stamp_style::seconds && own != stamp_style::seconds) ||
           tavor_output::is_kernel_text(line.rest) || is_logged_kernel_text(line.rest) ||
           std::any_of(options.foreign.begin(), options.foreign.end(),
                       [&](const std::regex &pattern) {
                           return std::regex_search(start.begin(), start.end(), pattern);
                       });
}

void log_reader::take_text(const stamped_line &line)
{
    const bool same_style = current && line.style == current->style;
    const auto found = tavor_output::parse_verdict(line.rest);
    if (found && same_style) {
        if (current->has_verdict) {
            damage("a second verdict stands behind the first");
        } else {
            judge(*found);
        }
        return;
    }
    take_output(line.rest);
}

// Text between a name and its verdict is the case's own. Of a verdict that is not whole it cannot
// be told whose it is.
void log_reader::take_output(std::string_view text)
{
    if (tavor_output::shows_verdict(text)) {
        run.leftovers++;
    }
    if (!current || current->has_verdict) {
        return;
    }
    if (tavor_output::shows_verdict(text)) {
        damage("no complete verdict in its place");
    } else {
        current->output.append(text);
        current->output.append("\n");
    }
}

void log_reader::take_behind_name(std::string_view rest)
{
    if (!run.zeb) {
        run.zeb = rest.starts_with(ZEB);
    }
    if (*run.zeb) {
        if (!rest.starts_with(ZEB)) {
            damage("the \" 0 \" behind its name is missing");
            return;
        }
        rest.remove_prefix(ZEB.size());
    }
    if (const auto found = tavor_output::parse_verdict(rest)) {
        judge(*found);
    } else if (tavor_output::shows_verdict(rest)) {
        damage("no complete verdict behind its name");
    } else if (!is_blank(rest) && !tavor_output::is_kernel_text(rest)) {
        take_output(rest);
    }
}

void log_reader::judge(const tavor_output::verdict_text &found)
{
    current->has_verdict = true;
    current->what.state = state_of(found.state);
    current->what.message = found.message;
    current->what.judged = arrived;
}

void log_reader::damage(const std::string &what)
{
    if (current->damage.empty()) {
        current->damage = what;
    }
}

void log_reader::open(int row, stamp_style style)
{
    seen_tavor = true;
    settle_before(row);
    current.emplace(tools::KEPT_OUTPUT);
    current->what.row = row;
    current->what.line = line_number;
    current->what.started = current->what.judged = arrived;
    current->style = style;
    run.names++;
    run.leftovers = 0;
    run.last_position = position_of(row);
    unexpected |= position_of(row) < 0;
    if (handlers.on_started) {
        handlers.on_started(row);
    }
}

// What the name of the next case tells about the one before it.
void log_reader::settle_before(int row)
{
    const int next = position_of(row);
    if (options.any_order) {
        if (current) { // other text may be what is left of lost lines
            settle(current->output.empty(), "lines before it may be missing: ");
        }
        return;
    }
    if (next <= run.last_position) { // tavor has begun again
        if (current && next == 0 &&
            run.last_position + 1 == static_cast<int>(options.expected.size())) {
            settle(true, "");
        }
        end_run();
    }
    const int missing = next - run.last_position - 1;
    const bool all_left_verdicts = missing > 0 && static_cast<int>(run.leftovers) == missing &&
                                   (!current || current->output.empty());
    if (current) {
        settle(missing == 0 || all_left_verdicts,
               "cases behind it are missing, the verdict may be one of theirs: ");
    }
    if (all_left_verdicts) {
        mark_missing(run.last_position + 1, next);
    }
}

void log_reader::mark_missing(int first, int last)
{
    for (int position = first; position < last; position++) {
        sighting destroyed;
        destroyed.row = options.expected[static_cast<std::size_t>(position)];
        destroyed.state = verdict::damaged;
        destroyed.message = "its name is unreadable";
        destroyed.line = line_number;
        destroyed.started = destroyed.judged = arrived;
        report(destroyed);
    }
}

// Makes the current case's state final, as far as lines can tell.
void log_reader::settle(bool certain, const std::string &doubt_text)
{
    sighting final = std::move(current->what);
    tools::kept_text output = std::move(current->output);
    const std::string damage_text = current->damage;
    const bool has_verdict = current->has_verdict;
    current.reset();
    if (!damage_text.empty() || !has_verdict) {
        final.state = verdict::damaged;
        final.message = damage_text.empty() ? "no verdict before the next name" : damage_text;
    } else {
        (final.state == verdict::fail ? run.failed : run.good)++;
        if (!certain) {
            run.doubts.push_back({seen.size(), final.state, final.message});
            final.message = doubt_text + claim_text(final.state, final.message);
            final.state = verdict::damaged;
        }
    }
    final.output = output.take(is_good(final.state) ? KEPT_OF_GOOD : tools::KEPT_OUTPUT);
    report(final);
}

void log_reader::report(const sighting &final)
{
    seen.push_back(final);
    if (handlers.on_judged) {
        handlers.on_judged(final);
    }
}

void log_reader::take_summary(const tavor_output::summary_count &line)
{
    seen_tavor = true;
    switch (line.which) {
    case tavor_output::summary_line::run:
        run.summary_run = line.count;
        break;
    case tavor_output::summary_line::passed:
        run.summary_passed = line.count;
        break;
    case tavor_output::summary_line::failed:
        run.summary_failed = line.count;
        break;
    }
}

bool log_reader::summary_agrees() const
{
    return run.summary_run && run.summary_passed && run.summary_failed &&
           *run.summary_run == *run.summary_passed + *run.summary_failed &&
           *run.summary_run == run.names && run.good <= *run.summary_passed &&
           run.failed <= *run.summary_failed;
}

// The end of what one process printed.
void log_reader::end_run()
{
    if (current && current->has_verdict && current->damage.empty()) {
        (current->what.state == verdict::fail ? run.failed : run.good)++;
        const bool agrees = summary_agrees();
        (current->what.state == verdict::fail ? run.failed : run.good)--;
        const bool is_last = run.last_position + 1 == static_cast<int>(options.expected.size());
        const bool stops_here = current->what.state == verdict::fail && !run.summary_run;
        settle(agrees || is_last || stops_here || (options.any_order && current->output.empty()),
               "the log ends here, the verdict may be a later case's: ");
    } else if (current && !current->has_verdict && current->damage.empty() && !run.summary_run) {
        current->what.output = current->output.take();
        report(std::exchange(current, std::nullopt)->what);
    } else if (current) {
        settle(false, "");
    }
    if (summary_agrees()) {
        for (const doubt &each : run.doubts) {
            seen[each.index].state = each.claimed;
            seen[each.index].message = each.message;
        }
        has_agreeing_run = true;
    } else if (run.names > 0 || run.leftovers > 0) {
        has_doubtful_run = true;
    }
    if (run.summary_passed && run.good > *run.summary_passed) {
        contradicting.push_back("the summary counts " + std::to_string(*run.summary_passed) +
                                " passed, the lines show " + std::to_string(run.good));
    }
    if (run.summary_failed && run.failed > *run.summary_failed) {
        contradicting.push_back("the summary counts " + std::to_string(*run.summary_failed) +
                                " failed, the lines show " + std::to_string(run.failed));
    }
    if (run.summary_run && run.summary_passed && run.summary_failed) {
        last_summary = {*run.summary_run, *run.summary_passed, *run.summary_failed};
    }
    run = one_run{};
}

namespace {

// Of several sightings of a case the worst counts; null for a case without any.
std::vector<const sighting *> worst_by_row(const log_reader &reader)
{
    std::vector<const sighting *> worst(tools::all_cases().size());
    for (const sighting &each : reader.sightings()) {
        const sighting *&kept = worst[static_cast<std::size_t>(each.row)];
        if (kept == nullptr || each.state > kept->state) {
            kept = &each;
        }
    }
    return worst;
}

std::string place_text(const sighting &seen)
{
    return " (line " + std::to_string(seen.line) + ")";
}

case_result judged(int row, const sighting *seen)
{
    if (seen == nullptr) {
        return result_of(row, verdict::unseen, "not in the log");
    }
    case_result result = result_of(row, seen->state, seen->message);
    result.output = seen->output;
    if (result.state == verdict::unended) {
        result.message = "its name is the last of its run: crashed or hung";
    }
    if (is_lost(result.state)) {
        result.message += place_text(*seen);
    }
    return result;
}

} // namespace

void judge_log(std::string_view text, const log_options &options, run_record &record)
{
    log_reader reader(options);
    reader.feed(text);
    reader.finish();
    if (!options.expected.empty() && reader.has_unexpected()) {
        record.notes.emplace_back("the log holds other cases, too: all are expected in it");
        log_options all = options;
        all.expected.clear();
        reader = log_reader(all);
        reader.feed(text);
        reader.finish();
    }
    if (!reader.has_seen_tavor()) {
        record.trouble("nothing of tavor in this log; what its lines begin with can be "
                       "named with --strip");
        return;
    }
    const std::vector<const sighting *> seen = worst_by_row(reader);
    std::vector<int> rows = options.expected;
    if (rows.empty()) {
        rows.resize(tools::all_cases().size());
        std::iota(rows.begin(), rows.end(), 0);
    }
    record.results.reserve(record.results.size() + rows.size());
    for (const int row : rows) {
        const sighting *const worst = seen[static_cast<std::size_t>(row)];
        if (!options.expected.empty() || !reader.is_complete() || worst != nullptr) {
            record.results.push_back(judged(row, worst));
        }
    }
    const auto missing = static_cast<std::size_t>(
        std::count_if(record.results.begin(), record.results.end(),
                      [](const case_result &each) { return each.state == verdict::unseen; }));
    if (const auto &summary = reader.summary(); summary && missing > 0) {
        record.notes.push_back("the summary counts " + std::to_string(summary->run) + " run, " +
                               std::to_string(summary->passed) + " passed, " +
                               std::to_string(summary->failed) + " failed; " +
                               std::to_string(missing) + " cases are not in the log");
    }
    for (const std::string &contradiction : reader.contradictions()) {
        record.trouble(contradiction);
    }
}

} // namespace tavor_run
