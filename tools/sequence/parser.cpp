// SPDX-License-Identifier: MIT
//
// One line is one call, or its end; the parameters of its operation say what each argument may be.
#include "tools/sequence/parser.h"

#include <charconv>
#include <csignal>
#include <cstring>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "tools/sequence/constants.h"
#include "tools/sequence/data.h"

namespace sequence {

namespace {

// More than any buffer holds.
constexpr std::uint64_t DATA_MAX = std::uint64_t{16} << 20;

bool is_word_character(char each)
{
    return (each >= 'a' && each <= 'z') || (each >= 'A' && each <= 'Z') ||
           (each >= '0' && each <= '9') || each == '_';
}

// The rest of a line.
class cursor {
public:
    cursor(std::string_view line, std::size_t number) : line_(line), number_(number) {}

    [[noreturn]] void fail(const std::string &why) const { fail_at(at_, why); }
    [[noreturn]] void fail_at(std::size_t place, const std::string &why) const
    {
        throw parse_error(number_, place + 1, why);
    }

    std::size_t place() const { return at_; }
    void go_back(std::size_t place) { at_ = place; }
    bool at_end() const { return at_ == line_.size(); }
    char next() const { return at_end() ? '\0' : line_[at_]; }
    std::string_view rest() const { return line_.substr(at_); }

    void skip_blanks()
    {
        while (next() == ' ' || next() == '\t') at_++;
    }

    bool take(std::string_view text)
    {
        skip_blanks();
        if (!rest().starts_with(text)) return false;
        at_ += text.size();
        return true;
    }

    void expect(std::string_view text)
    {
        if (!take(text)) fail("expected '" + std::string(text) + "'");
    }

    std::string_view word()
    {
        skip_blanks();
        const std::size_t start = at_;
        while (is_word_character(next())) at_++;
        return line_.substr(start, at_ - start);
    }

    // A field's name, such as "requests[0].size".
    std::string_view field_name()
    {
        skip_blanks();
        const std::size_t start = at_;
        while (is_word_character(next()) || next() == '[' || next() == ']' || next() == '.') at_++;
        return line_.substr(start, at_ - start);
    }

    std::uint64_t number()
    {
        skip_blanks();
        const bool is_negative = take("-");
        const bool is_hexadecimal = rest().starts_with("0x");
        if (is_hexadecimal) at_ += 2;
        std::uint64_t read = 0;
        const auto [end, error] = std::from_chars(line_.data() + at_, line_.data() + line_.size(),
                                                  read, is_hexadecimal ? 16 : 10);
        if (error != std::errc{}) fail("expected a number");
        at_ = static_cast<std::size_t>(end - line_.data());
        if (is_word_character(next())) fail("a digit that is none");
        return is_negative ? 0 - read : read;
    }

    std::string quoted()
    {
        expect("\"");
        std::string text;
        while (next() != '"') {
            if (at_end()) fail("the text has no end");
            if (next() != '\\') {
                text += line_[at_++];
                continue;
            }
            at_++;
            if (next() == 'x') {
                at_++;
                text += hexadecimal_byte();
            } else if (next() == '"' || next() == '\\') {
                text += line_[at_++];
            } else {
                fail("unknown escape");
            }
        }
        at_++;
        return text;
    }

    char hexadecimal_byte()
    {
        std::uint8_t byte = 0;
        const char *start = line_.data() + at_;
        if (line_.size() - at_ < 2) fail("expected two hexadecimal digits");
        const auto [end, error] = std::from_chars(start, start + 2, byte, 16);
        if (error != std::errc{} || end != start + 2) fail("expected two hexadecimal digits");
        at_ += 2;
        return static_cast<char>(byte);
    }

private:
    std::string_view line_;
    std::size_t number_;
    std::size_t at_ = 0;
};

class reader {
public:
    call_sequence read(std::string_view text)
    {
        std::size_t number = 0;
        bool has_header = false;
        while (!text.empty()) {
            number++;
            const std::size_t end = text.find('\n');
            cursor line(text.substr(0, end), number);
            if (end == std::string_view::npos) {
                line.fail_at(text.size(), "the last line is cut off");
            }
            text.remove_prefix(end + 1);
            if (!has_header) {
                read_header(line);
                has_header = true;
            } else {
                read_line(line);
            }
        }
        if (!has_header) throw parse_error(1, 1, "no header: expected 'sequence version=1 ...'");
        finish();
        return std::move(whole_);
    }

private:
    void read_header(cursor line)
    {
        if (line.word() != "sequence") line.fail_at(0, "expected 'sequence version=1 ...'");
        line.expect("version=");
        const std::size_t place = line.place();
        whole_.header.version = static_cast<int>(line.number());
        if (whole_.header.version != 1) line.fail_at(place, "a version that is not known");
        line.expect("library=");
        whole_.header.library = line.quoted();
        line.expect("program=");
        whole_.header.program = line.quoted();
        expect_end(line);
    }

    void expect_end(cursor &line)
    {
        line.skip_blanks();
        if (!line.at_end() && line.next() != '#') line.fail("expected the end of the line");
    }

    void read_line(cursor line)
    {
        line.skip_blanks();
        if (line.at_end()) return;
        if (line.next() == '#') {
            comments_.emplace_back(line.rest().substr(1));
            return;
        }
        std::uint16_t thread = 1;
        if (line.take("@")) {
            const std::size_t place = line.place();
            const std::uint64_t number = line.number();
            if (number == 0 || number > 64) line.fail_at(place, "a thread is from 1 to 64");
            thread = static_cast<std::uint16_t>(number);
        }
        const auto names = read_names(line);
        const std::size_t place = (line.skip_blanks(), line.place());
        const std::string_view name = line.word();
        if (name == "returned") {
            read_end(line, thread, names, place);
            return;
        }
        const operation_schema *which = find_operation(name);
        if (which == nullptr) line.fail_at(place, "no operation '" + std::string(name) + "'");
        if (open_.contains(thread)) line.fail_at(place, "the thread's call has not returned");
        read_call(line, thread, names, *which);
    }

    using name_list = std::vector<std::pair<std::string, std::size_t>>;

    // What stands before '='; nothing when there is none.
    name_list read_names(cursor &line)
    {
        const std::size_t start = line.place();
        name_list names;
        do {
            line.skip_blanks();
            const std::size_t place = line.place();
            const std::string_view name = line.word();
            if (name.empty()) break;
            names.emplace_back(name, place);
        } while (line.take(","));
        if (!names.empty() && line.take("=")) return names;
        line.go_back(start);
        return {};
    }

    void define(cursor &line, call &made, const name_list &names)
    {
        const auto places = named_places(made);
        for (std::size_t i = 0; i < names.size(); i++) {
            const auto &[name, at] = names[i];
            if (i >= places.size()) line.fail_at(at, "the operation gives nothing to name here");
            made.names.push_back(name == "_" ? NO_VARIABLE
                                             : defined(line, name, places[i].what, at));
        }
    }

    variable defined(cursor &line, const std::string &name, role what, std::size_t at)
    {
        if ((name[0] >= '0' && name[0] <= '9') || constant_number(name) || name == "null") {
            line.fail_at(at, "'" + name + "' cannot be a name");
        }
        if (variables_.contains(name)) line.fail_at(at, "'" + name + "' is defined twice");
        const auto index = static_cast<variable>(whole_.variables.size());
        variables_[name] = index;
        whole_.variables.push_back({name, what});
        return index;
    }

    void read_call(cursor &line, std::uint16_t thread, const name_list &names,
                   const operation_schema &which)
    {
        call made;
        made.operation = number_of(which);
        made.thread = thread;
        made.comments = std::move(comments_);
        comments_.clear();
        made.arguments.resize(which.parameters.size());
        line.expect("(");
        bool is_first = true;
        for (std::size_t i = 0; i < which.parameters.size(); i++) {
            if (!which.parameters[i].is_read()) continue;
            if (!is_first) line.expect(",");
            is_first = false;
            made.arguments[i] = read_value(line, which.parameters[i]);
        }
        while (is_first ? line.next() != ')' : line.take(",")) {
            is_first = false;
            read_null(line, which, made);
        }
        line.expect(")");
        check_counts(line, which, made);
        const auto index = static_cast<std::uint32_t>(whole_.calls.size());
        if (line.take("...")) {
            if (!names.empty()) line.fail_at(names[0].second, "a call that begins defines nothing");
            open_[thread] = index;
            whole_.steps.push_back({index, phase::begin});
            add(std::move(made), {});
            expect_end(line);
            return;
        }
        define(line, made, names);
        whole_.steps.push_back({index, phase::whole});
        const auto given = read_answer(line, made);
        add(std::move(made), given);
        expect_end(line);
    }

    void add(call made, std::optional<answer> given)
    {
        whole_.calls.push_back(std::move(made));
        given_.push_back(std::move(given));
    }

    // "error=null": an address that would be written through.
    void read_null(cursor &line, const operation_schema &which, call &made)
    {
        line.skip_blanks();
        const std::size_t place = line.place();
        const std::string_view name = line.word();
        for (std::size_t i = 0; i < which.parameters.size(); i++) {
            const parameter &where = which.parameters[i];
            if (where.name != name || where.is_read()) continue;
            line.expect("=");
            line.expect("null");
            made.arguments[i].kind = value_kind::null;
            return;
        }
        line.fail_at(place, "nothing is written to '" + std::string(name) + "'");
    }

    static void check_counts(cursor &line, const operation_schema &which, const call &made)
    {
        for (std::size_t i = 0; i < which.parameters.size(); i++) {
            const parameter &where = which.parameters[i];
            if (where.shape != shape::bytes || !where.is_read() || where.count_at < 0) continue;
            const value &count = made.arguments[static_cast<std::size_t>(where.count_at)];
            const value &data = made.arguments[i];
            if (data.kind == value_kind::bytes && count.kind == value_kind::number &&
                count.one().number > data.bytes.size()) {
                line.fail("the length is more than the data");
            }
        }
    }

    void read_end(cursor &line, std::uint16_t thread, const name_list &names, std::size_t place)
    {
        const auto begun = open_.find(thread);
        if (begun == open_.end()) line.fail_at(place, "no call of this thread has begun");
        line.expect("(");
        line.expect(")");
        const std::uint32_t index = begun->second;
        call &made = whole_.calls[index];
        define(line, made, names);
        whole_.steps.push_back({index, phase::end});
        given_[index] = read_answer(line, made);
        open_.erase(begun);
        expect_end(line);
    }

    std::optional<answer> read_answer(cursor &line, const call &made)
    {
        if (!line.take("->")) return std::nullopt;
        const operation_schema &which = schema_of(made.operation);
        answer given;
        given.stored.resize(which.parameters.size());
        if (read_outcome(line, given)) return given;
        if (which.result.shape == shape::nothing) {
            line.expect("done");
        } else {
            given.result = read_value(line, which.result);
        }
        while (line.take(",")) {
            line.skip_blanks();
            const std::size_t place = line.place();
            const std::string_view name = line.word();
            bool found = false;
            for (std::size_t i = 0; i < which.parameters.size(); i++) {
                if (which.parameters[i].name != name || !which.parameters[i].is_written()) continue;
                line.expect("=");
                given.stored[i] = read_value(line, which.parameters[i], true);
                found = true;
            }
            if (!found) line.fail_at(place, "nothing is stored in '" + std::string(name) + "'");
        }
        return given;
    }

    static bool read_outcome(cursor &line, answer &given)
    {
        const std::size_t start = line.place();
        const std::string_view word = line.word();
        if (word == "hang") {
            given.outcome = outcome::hang;
        } else if (word == "flood") {
            given.outcome = outcome::flood;
        } else if (word == "not") {
            line.expect("returned");
            given.outcome = outcome::unreturned;
        } else if (word == "crash") {
            given.outcome = outcome::crash;
            const std::string name(line.word());
            for (int i = 1; i < NSIG && !name.empty(); i++) {
                const char *known = sigabbrev_np(i);
                if (known != nullptr && name == std::string("SIG") + known) given.signal = i;
            }
        } else {
            line.go_back(start);
            return false;
        }
        return true;
    }

    value read_value(cursor &line, const parameter &where, bool is_answer = false)
    {
        const std::size_t start = (line.skip_blanks(), line.place());
        if (line.word() == "null") {
            if (!where.by_address && where.shape != shape::bytes) {
                line.fail_at(start, "'" + std::string(where.name) + "' is no address");
            }
            return {value_kind::null, {}, {}};
        }
        line.go_back(start);
        if (line.word() == "unreadable") return {value_kind::unreadable, {}, {}};
        line.go_back(start);
        switch (where.shape) {
        case shape::text:
            return bytes_value(line.quoted());
        case shape::bytes:
            return read_data(line);
        case shape::record:
            return read_record(line, where, is_answer);
        default:
            return number_value(read_scalar(line, where.what));
        }
    }

    scalar read_scalar(cursor &line, role what)
    {
        line.skip_blanks();
        const std::size_t place = line.place();
        if (line.take("?")) return {0, UNSEEN};
        const char first = line.next();
        if (first == '-' || (first >= '0' && first <= '9')) return {line.number()};
        const std::string name(line.word());
        if (name.empty()) line.fail("expected a number or a name");
        if (name == "self" && what == role::process) return OWN_PROCESS;
        if (const auto constant = constant_number(name)) return {*constant};
        const auto found = variables_.find(name);
        if (found == variables_.end()) line.fail_at(place, "'" + name + "' is not defined");
        scalar named{0, found->second};
        if (line.next() == '+') line.take("+");
        const bool has_distance = line.next() == '-' || (line.next() >= '0' && line.next() <= '9');
        if (has_distance) named.number = line.number();
        return named;
    }

    value read_record(cursor &line, const parameter &where, bool is_answer)
    {
        const record_layout &layout = *where.record;
        value read{value_kind::record, {}, {}};
        line.expect("{");
        do {
            const std::size_t base = read.scalars.size();
            read.scalars.resize(base + layout.fields.size());
            while (!line.take("}")) {
                line.skip_blanks();
                const std::size_t place = line.place();
                const std::string_view name = line.field_name();
                std::size_t index = 0;
                while (index < layout.fields.size() && layout.fields[index].name != name) index++;
                if (index == layout.fields.size()) {
                    line.fail_at(place, "the record has no '" + std::string(name) + "'");
                }
                line.expect("=");
                read.scalars[base + index] = read_scalar(line, layout.fields[index].what);
                if (!line.take(",") && line.next() != '}') line.fail("expected ',' or '}'");
            }
        } while (is_answer && where.count_at >= 0 && line.take("{"));
        return read;
    }

    value read_data(cursor &line)
    {
        std::string bytes;
        bool has_any = false;
        while (true) {
            const std::size_t start = (line.skip_blanks(), line.place());
            const std::string_view kind = line.word();
            if (kind.empty() && has_any) return bytes_value(std::move(bytes));
            has_any = true;
            if (kind == "hex") {
                line.expect("(");
                while (!line.take(")")) bytes += line.hexadecimal_byte();
            } else if (kind == "pattern" || kind == "fill") {
                bytes += bytes_of(read_stretch(line, kind == "pattern"));
            } else if (kind == "any") {
                line.expect("(");
                const std::uint64_t count = line.number();
                line.expect(")");
                return {value_kind::any_bytes, {{count}}, {}};
            } else {
                line.fail_at(start, "expected data: hex(), pattern(), fill() or any()");
            }
            if (bytes.size() > DATA_MAX) line.fail_at(start, "more data than can be");
        }
    }

    static stretch read_stretch(cursor &line, bool is_pattern)
    {
        stretch read;
        read.kind = is_pattern ? stretch_kind::pattern : stretch_kind::fill;
        line.expect("(");
        read.number = static_cast<std::uint8_t>(limited(line, 255));
        line.expect(",");
        read.length = limited(line, DATA_MAX);
        if (is_pattern && line.take(",")) read.skipped = limited(line, DATA_MAX);
        line.expect(")");
        return read;
    }

    static std::uint64_t limited(cursor &line, std::uint64_t most)
    {
        const std::size_t start = (line.skip_blanks(), line.place());
        const std::uint64_t number = line.number();
        if (number > most) line.fail_at(start, "more than " + std::to_string(most));
        return number;
    }

    // Calls that have begun and not returned are answers, too.
    void finish()
    {
        whole_.closing_comments = std::move(comments_);
        bool has_answers = false;
        for (const auto &each : given_) has_answers = has_answers || each.has_value();
        if (!has_answers) return;
        for (std::size_t i = 0; i < given_.size(); i++) {
            answer missing;
            missing.outcome = outcome::unreturned;
            missing.stored.resize(whole_.calls[i].arguments.size());
            whole_.answers.push_back(given_[i] ? std::move(*given_[i]) : missing);
        }
    }

    call_sequence whole_;
    std::vector<std::optional<answer>> given_;
    std::map<std::string, variable, std::less<>> variables_;
    std::map<std::uint16_t, std::uint32_t> open_;
    std::vector<std::string> comments_;
};

} // namespace

call_sequence from_text(std::string_view text)
{
    return reader().read(text);
}

} // namespace sequence
