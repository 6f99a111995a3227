// SPDX-License-Identifier: MIT
//
// First calls are left out, in halves, quarters and at last one by one, until none can be; then
// numbers and data are made smaller, each step kept where the difference stays the same.
#include "tools/sequence/reduction.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "tools/sequence/dependencies.h"

namespace sequence {

namespace {

// A call alone in its thread needs no thread.
call_sequence in_one_thread(call_sequence made)
{
    made.steps.clear();
    for (std::size_t i = 0; i < made.calls.size(); i++) {
        made.calls[i].thread = 1;
        made.steps.push_back({static_cast<std::uint32_t>(i), phase::whole});
    }
    return made;
}

class reducer {
public:
    reducer(const finding &shown, operation guilty, const reduction_setup &how)
        : shown_(shown), guilty_(guilty), how_(how)
    {
    }

    std::optional<reduced> run(const call_sequence &whole)
    {
        std::vector<bool> kept(whole.calls.size(), false);
        std::fill_n(kept.begin(), shown_.call + 1, true);
        current_ = selection(whole, kept);
        current_.answers.clear();
        for (call &each : current_.calls) each.comments.clear();
        current_.closing_comments.clear();
        if (!shows(current_)) return std::nullopt;
        try_one(in_one_thread(current_));
        for (bool changed = true; changed;) {
            changed = drop_calls();
            changed = shrink_arguments() || changed;
        }
        return proved();
    }

private:
    // Whether the last call, and none before it, differs in the same way.
    bool shows(const call_sequence &candidate)
    {
        if (candidate.calls.empty() || candidate.calls.back().operation != guilty_) return false;
        runs_++;
        auto both = run_all(candidate, {{how_.tested}, {how_.reference}}, how_.allowed);
        const answers &got = both[0];
        expected_ = std::move(both[1]);
        const std::size_t last = candidate.calls.size() - 1;
        if (expected_.size() != candidate.calls.size() || got.size() != candidate.calls.size()) {
            return false;
        }
        for (std::size_t i = 0; i < last; i++) {
            if (compare(candidate.calls[i], expected_[i], got[i], candidate.variables)) {
                return false;
            }
        }
        const auto found =
            compare(candidate.calls[last], expected_[last], got[last], candidate.variables);
        return found == shown_.difference;
    }

    bool try_one(call_sequence candidate)
    {
        if (!shows(candidate)) return false;
        current_ = std::move(candidate);
        return true;
    }

    // The last call stays.
    bool drop_calls()
    {
        bool changed = false;
        for (std::size_t size = current_.calls.size() / 2; size > 0; size /= 2) {
            for (std::size_t end = current_.calls.size() - 1; end > 0;) {
                const std::size_t begin = end > size ? end - size : 0;
                std::vector<bool> kept(current_.calls.size(), true);
                std::fill(kept.begin() + static_cast<std::ptrdiff_t>(begin),
                          kept.begin() + static_cast<std::ptrdiff_t>(end), false);
                kept = closed(current_, std::move(kept));
                if (kept.back() && try_one(selection(current_, kept))) changed = true;
                end = std::min(begin, current_.calls.size() - 1);
            }
        }
        return changed;
    }

    bool shrink_arguments()
    {
        bool changed = false;
        for (std::size_t i = 0; i < current_.calls.size(); i++) {
            for (std::size_t j = 0; j < current_.calls[i].arguments.size(); j++) {
                changed = shrink(i, j) || changed;
            }
        }
        return changed;
    }

    bool shrink(std::size_t index, std::size_t argument)
    {
        const parameter &where = schema_of(current_.calls[index].operation).parameters[argument];
        const value &given = current_.calls[index].arguments[argument];
        bool changed = false;
        if (where.shape == shape::bytes || where.shape == shape::text) {
            return given.kind == value_kind::bytes && shrink_bytes(index, argument);
        }
        if (where.name == "timeout") return false;
        for (std::size_t i = 0; i < current_.calls[index].arguments[argument].scalars.size(); i++) {
            changed = shrink_scalar(index, argument, i, where) || changed;
        }
        return changed;
    }

    // Handles and kinds stay; quantities become 0, then less.
    bool shrink_scalar(std::size_t index, std::size_t argument, std::size_t at,
                       const parameter &where)
    {
        const auto scalar_at = [&](call_sequence &made) -> scalar & {
            return made.calls[index].arguments[argument].scalars[at];
        };
        const scalar now = scalar_at(current_);
        const bool is_quantity = where.form == interface::form::decimal || where.record != nullptr;
        if (now.name != NO_VARIABLE || now.number == 0 || !is_quantity) return false;
        for (const std::uint64_t smaller : {std::uint64_t{0}, std::uint64_t{1}, now.number / 2}) {
            if (smaller >= now.number) continue;
            call_sequence candidate = current_;
            scalar_at(candidate).number = smaller;
            fit_data(candidate.calls[index]);
            if (try_one(std::move(candidate))) return true;
        }
        return false;
    }

    // Data is as long as its count says.
    static void fit_data(call &made)
    {
        const operation_schema &which = schema_of(made.operation);
        for (std::size_t i = 0; i < which.parameters.size(); i++) {
            const int at = which.parameters[i].count_at;
            value &data = made.arguments[i];
            if (at < 0 || data.kind != value_kind::bytes) continue;
            const value &count = made.arguments[static_cast<std::size_t>(at)];
            data.bytes.resize(std::min<std::size_t>(data.bytes.size(), count.one().number));
        }
    }

    bool shrink_bytes(std::size_t index, std::size_t argument)
    {
        const std::string now = current_.calls[index].arguments[argument].bytes;
        const bool is_text =
            schema_of(current_.calls[index].operation).parameters[argument].shape == shape::text;
        if (!is_text) {
            const std::string zeros(now.size(), '\0');
            if (now == zeros) return false;
            call_sequence candidate = current_;
            candidate.calls[index].arguments[argument].bytes = zeros;
            return try_one(std::move(candidate));
        }
        if (now.size() <= 1) return false;
        call_sequence candidate = current_;
        candidate.calls[index].arguments[argument].bytes = now.substr(0, 1);
        return try_one(std::move(candidate));
    }

    std::optional<reduced> proved()
    {
        for (std::size_t i = 0; i < how_.proofs; i++) {
            if (!shows(current_)) return std::nullopt;
        }
        reduced result{std::move(current_), shown_, runs_};
        result.made.answers = std::move(expected_);
        result.finding.call = result.made.calls.size() - 1;
        return result;
    }

    const finding &shown_;
    operation guilty_;
    const reduction_setup &how_;
    call_sequence current_;
    answers expected_;
    std::size_t runs_ = 0;
};

} // namespace

std::optional<reduced> reduce(const call_sequence &whole, const finding &shown,
                              const reduction_setup &how)
{
    return reducer(shown, whole.calls[shown.call].operation, how).run(whole);
}

} // namespace sequence
