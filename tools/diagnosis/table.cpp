// SPDX-License-Identifier: MIT
//
// The table's text: sections that begin at the margin, with indented lines below them.
//
//   case NAME OPERATION ...       what a case calls
//   right                         how cases that print something end with a right library
//   fault NAME TEXT               how cases end with the fault
//     NAME fail MESSAGE           good, fail, crash, hang
//       | LINE                    that the case prints
//       > CALL                    the first that differs from the contract
#include "tools/diagnosis/table.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <optional>
#include <utility>

#include "tools/common/shim.h"
#include "tools/common/usage_error.h"

namespace diagnosis {

namespace {

constexpr std::array<std::string_view, 5> ENDINGS = {"good", "fail", "crash", "hang", "stopped"};

constexpr std::string_view OF_CASE = "  ";
constexpr std::string_view PRINTED = "    | ";
constexpr std::string_view DIFFERS = "    > ";

// The text up to the next blank, which is taken away with it.
std::string_view take_word(std::string_view &rest)
{
    const std::size_t end = std::min(rest.find(' '), rest.size());
    const std::string_view word = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    return word;
}

class reader {
public:
    explicit reader(std::string name) : name_(std::move(name)) {}

    table read(std::string_view text)
    {
        while (!text.empty()) {
            const std::size_t end = std::min(text.find('\n'), text.size());
            number_++;
            take(text.substr(0, end));
            text.remove_prefix(std::min(end + 1, text.size()));
        }
        finish_outcome();
        if (made_.faults.empty() || made_.operations.empty()) refuse("no table of known faults");
        return std::move(made_);
    }

private:
    void take(std::string_view line)
    {
        if (line.starts_with(PRINTED) || line.starts_with(DIFFERS)) {
            if (!now_) refuse("no case before what it prints");
            const std::string text(line.substr(PRINTED.size()));
            if (line.starts_with(DIFFERS)) {
                now_->call = text;
            } else {
                now_->printed.insert(text);
            }
            return;
        }
        finish_outcome();
        if (line.empty() || line.starts_with('#')) return;
        if (line.starts_with(OF_CASE)) {
            take_outcome(line.substr(OF_CASE.size()));
        } else {
            take_section(line);
        }
    }

    void take_section(std::string_view line)
    {
        const std::string_view kind = take_word(line);
        const std::string name(take_word(line));
        section_ = nullptr;
        if (kind == "case" && !name.empty()) {
            auto &called = made_.operations[name];
            while (!line.empty()) called.emplace_back(take_word(line));
        } else if (kind == "right") {
            section_ = &made_.right;
        } else if (kind == "fault" && !name.empty()) {
            made_.faults.push_back({name, std::string(line), {}});
            section_ = &made_.faults.back().cases;
        } else {
            refuse("neither case, right nor fault");
        }
    }

    void take_outcome(std::string_view line)
    {
        if (section_ == nullptr) refuse("no fault before its cases");
        case_ = take_word(line);
        const std::string_view ending = take_word(line);
        const auto *const known = std::find(ENDINGS.begin(), ENDINGS.end(), ending);
        if (known == ENDINGS.end()) refuse("no way to end: " + std::string(ending));
        now_ = {static_cast<diagnosis::ending>(known - ENDINGS.begin()), std::string(line), {}, {}};
    }

    void finish_outcome()
    {
        if (now_) (*section_)[case_].insert(*std::exchange(now_, std::nullopt));
    }

    [[noreturn]] void refuse(const std::string &why) const
    {
        throw tools::usage_error(name_ + ":" + std::to_string(number_) + ": " + why);
    }

    std::string name_;
    std::size_t number_ = 0;
    table made_;
    outcomes *section_ = nullptr;
    std::string case_;
    std::optional<outcome> now_;
};

void add_outcomes(std::string &text, const outcomes &cases)
{
    for (const auto &[name, ways] : cases) {
        for (const outcome &each : ways) {
            text += std::string(OF_CASE) + name + " " +
                    std::string(ENDINGS[static_cast<std::size_t>(each.ending)]);
            if (!each.message.empty()) text += " " + each.message;
            text += "\n";
            for (const std::string &line : each.printed) text += std::string(PRINTED) + line + "\n";
            if (!each.call.empty()) text += std::string(DIFFERS) + each.call + "\n";
        }
    }
}

} // namespace

table table_of(std::string_view text, const std::string &name)
{
    return reader(name).read(text);
}

table read_table(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    if (!file) throw tools::usage_error("cannot read " + path);
    return table_of(text, path);
}

std::string to_text(const table &whole)
{
    std::string text;
    for (const auto &[name, called] : whole.operations) {
        text += "case " + name;
        for (const std::string &each : called) text += " " + each;
        text += "\n";
    }
    text += "right\n";
    add_outcomes(text, whole.right);
    for (const known_fault &each : whole.faults) {
        text += "fault " + each.name + (each.text.empty() ? "" : " " + each.text) + "\n";
        add_outcomes(text, each.cases);
    }
    return text;
}

std::string default_table()
{
    return tools::own_folder() / TAVOR_DATA_FOLDER / "known-faults.txt";
}

const std::set<outcome> &endings_of(const table &whole, const known_fault *fault,
                                    std::string_view case_name)
{
    static const std::set<outcome> good = {outcome{}};
    if (fault != nullptr) {
        const auto found = fault->cases.find(case_name);
        if (found != fault->cases.end()) return found->second;
    }
    const auto found = whole.right.find(case_name);
    return found == whole.right.end() ? good : found->second;
}

std::string text_of(const outcome &one)
{
    std::string text(ENDINGS[static_cast<std::size_t>(one.ending)]);
    if (!one.message.empty()) text += ": " + one.message;
    return text;
}

} // namespace diagnosis
