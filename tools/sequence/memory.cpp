// SPDX-License-Identifier: MIT
//
// The forms that values have in memory: numbers of any width, text, bytes, records.
#include "tools/sequence/memory.h"

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cerrno>
#include <cstring>

namespace sequence {

namespace {

// More is no data, but a length that is wrong.
constexpr std::size_t DATA_MAX = std::size_t{16} << 20;
constexpr std::size_t TEXT_MAX = 4096;
constexpr std::size_t ENTRIES_MAX = 64;
constexpr std::uint64_t BAD_ADDRESS = ~std::uint64_t{0};
// So that a library that stores more than it should does no harm.
constexpr std::size_t SPARE = 64;

std::uint64_t load(const std::byte *from, std::size_t width)
{
    const auto read = [from]<typename number>(number value) -> std::uint64_t {
        std::memcpy(&value, from, sizeof value);
        return value;
    };
    switch (width) {
    case 1:
        return read(std::uint8_t{});
    case 2:
        return read(std::uint16_t{});
    case 4:
        return read(std::uint32_t{});
    default:
        return read(std::uint64_t{});
    }
}

const std::byte *at_address(std::uint64_t address)
{
    // NOLINTNEXTLINE(performance-no-int-to-ptr): arguments are numbers until they are used
    return reinterpret_cast<const std::byte *>(static_cast<std::uintptr_t>(address));
}

void store(std::byte *to, std::size_t width, std::uint64_t value)
{
    const auto write = [to](auto number) { std::memcpy(to, &number, sizeof number); };
    switch (width) {
    case 1:
        return write(static_cast<std::uint8_t>(value));
    case 2:
        return write(static_cast<std::uint16_t>(value));
    case 4:
        return write(static_cast<std::uint32_t>(value));
    default:
        return write(value);
    }
}

std::uint64_t cut(std::uint64_t number, const parameter &where)
{
    if (where.is_signed) return number;
    return where.width >= 8 ? number : number & ((std::uint64_t{1} << where.width * 8) - 1);
}

// Which of a record's fields mean something: a metadata record's by its mask, a list's by its
// count.
class selected_fields {
public:
    selected_fields(const record_layout &layout, const std::byte *record)
    {
        const std::string_view first = layout.fields.front().name;
        if (first == "mask") mask_ = static_cast<std::uint32_t>(load(record, 4));
        if (first == "count") entries_ = load(record, 2);
    }

    bool has(const field &part) const
    {
        if (part.mask != 0 && (part.mask & mask_) == 0) return false;
        return !part.name.ends_with(']') && part.name.find('[') == std::string_view::npos
                   ? true
                   : index_of(part.name) < entries_;
    }

private:
    static std::size_t index_of(std::string_view name)
    {
        std::size_t index = 0;
        for (std::size_t i = name.find('[') + 1; i < name.size() && name[i] != ']'; i++) {
            index = index * 10 + static_cast<std::size_t>(name[i] - '0');
        }
        return index;
    }

    std::uint32_t mask_ = ~std::uint32_t{0};
    std::size_t entries_ = ENTRIES_MAX;
};

bool is_list_answer(const field &part)
{
    return part.name.starts_with("results") || part.name == "allocated";
}

value read_record(const parameter &where, std::uint64_t address, const bindings &known)
{
    std::vector<std::byte> bytes(where.record->size);
    if (!read_safely(address, bytes.data(), bytes.size())) return {value_kind::unreadable, {}, {}};
    const selected_fields selected(*where.record, bytes.data());
    // Of a record that is to be filled only the mask is read: the rest may never have been written.
    const bool only_first = where.form == interface::form::metadata && where.is_written();
    value read{value_kind::record, {}, {}};
    for (const field &part : where.record->fields) {
        const bool is_first = read.scalars.empty();
        if (!selected.has(part) || is_list_answer(part) || (only_first && !is_first)) {
            read.scalars.emplace_back();
            continue;
        }
        read.scalars.push_back(
            known.name_of(part.what, load(bytes.data() + part.offset, part.width)));
    }
    return read;
}

value read_text(std::uint64_t address)
{
    std::string text;
    for (char each = 0; text.size() < TEXT_MAX; text += each) {
        if (!read_safely(address + text.size(), &each, 1)) return {value_kind::unreadable, {}, {}};
        if (each == 0) break;
    }
    return bytes_value(std::move(text));
}

// The numbers of a request's record, which stand before its name, have their lowest byte first in a
// sequence, on whichever machine. The same way there and back.
std::string in_sequence_order(std::uint64_t request, std::string bytes)
{
    if constexpr (std::endian::native == std::endian::big) {
        const std::size_t size = bytes.size();
        const std::size_t numbers =
            size > KEL_REGION_NAME_SIZE ? size - KEL_REGION_NAME_SIZE : size;
        for (std::size_t i = 0; i + 4 <= numbers && request_size(request) == size; i += 4) {
            std::reverse(&bytes[i], &bytes[i] + 4);
        }
    }
    return bytes;
}

value read_bytes(std::uint64_t address, std::uint64_t count)
{
    value read = bytes_value(std::string(std::min<std::uint64_t>(count, DATA_MAX), '\0'));
    if (count > DATA_MAX || !read_safely(address, read.bytes.data(), read.bytes.size())) {
        return {value_kind::any_bytes, {{count}}, {}};
    }
    return read;
}

value read_argument(const operation_schema &which, std::size_t index, const raw_arguments &passed,
                    const bindings &known)
{
    const parameter &where = which.parameters[index];
    const std::uint64_t raw = passed[index];
    if (!where.by_address && where.shape == shape::number) {
        return number_value(known.name_of(where.what, cut(raw, where)));
    }
    if (raw == 0 && where.by_address) return {value_kind::null, {}, {}};
    if (!where.is_read()) return {};
    if (where.shape == shape::record) return read_record(where, raw, known);
    if (where.shape == shape::text) return read_text(raw);
    if (where.shape == shape::bytes) {
        const std::uint64_t count = which.is_system()
                                        ? request_size(passed[index - 1])
                                        : passed[static_cast<std::size_t>(where.count_at)];
        if (raw == 0) return {value_kind::null, {}, {}};
        value read = read_bytes(raw, count);
        if (!which.is_system()) return read;
        if (read.kind == value_kind::any_bytes) return {value_kind::unreadable, {}, {}};
        read.bytes = in_sequence_order(passed[index - 1], std::move(read.bytes));
        return read;
    }
    std::uint64_t number = 0;
    std::byte bytes[8] = {};
    if (!read_safely(raw, bytes, where.width)) return {value_kind::unreadable, {}, {}};
    number = load(bytes, where.width);
    return number_value(known.name_of(where.what, number));
}

// Reading of what a call gave: names what is new, and says what is not.
class answer_reader {
public:
    answer_reader(call &made, bindings &known, const namer &give)
        : made_(made), which_(schema_of(made.operation)), known_(known), give_(give)
    {
    }

    scalar read(const parameter &where, role what, std::uint64_t number, int parameter,
                std::size_t entry)
    {
        const bool may = may_name(where, what);
        const std::size_t slot = slot_;
        if (may) slot_++;
        if (what == role::process && number == static_cast<std::uint64_t>(getpid())) {
            return OWN_PROCESS;
        }
        if (where.what == role::program_address && number != 0) return {0, UNSEEN};
        if (!may) return known_.name_of(what, number);
        if (number == 0 || (what == role::descriptor && static_cast<std::int32_t>(number) < 0)) {
            return {number};
        }
        // A number that no dynamic tag can have says more than that it is a new one.
        if (what == role::tag && number < KEL_FIRST_DYNAMIC_TAG) return {number};
        if (what == role::address) {
            return read_address(number, {owner(), made_.operation, parameter, entry}, slot);
        }
        if (!gives_new_object(which_, where) && known_.is_known(what, number)) {
            return known_.name_of(what, number);
        }
        const variable name = name_at(slot, what);
        if (name < 0) return {0, UNSEEN};
        known_.bind(name, what, number);
        return {0, name};
    }

    void pass_over(std::size_t places) { slot_ += places; }

private:
    variable owner() const
    {
        if (made_.arguments.empty() || made_.arguments[0].kind != value_kind::number) {
            return NO_VARIABLE;
        }
        return made_.arguments[0].one().name;
    }

    scalar read_address(std::uint64_t address, const address_space &space, std::size_t slot)
    {
        if (const auto known = known_.name_of(space, address)) return *known;
        const variable name = name_at(slot, role::address);
        if (name < 0) return {0, UNSEEN};
        known_.bind(name, space, address);
        return {0, name};
    }

    variable name_at(std::size_t slot, role what)
    {
        if (slot < made_.names.size() && made_.names[slot] >= 0) return made_.names[slot];
        const variable name = give_ ? give_(what) : NO_VARIABLE;
        if (name < 0) return name;
        if (slot >= made_.names.size()) made_.names.resize(slot + 1, NO_VARIABLE);
        made_.names[slot] = name;
        return name;
    }

    call &made_;
    const operation_schema &which_;
    bindings &known_;
    const namer &give_;
    std::size_t slot_ = 0;
};

// Some kernels and emulators do not have the call for it, or do not permit it.
constinit std::atomic<bool> is_readable_at_once{true};

// The kernel says so when the address is none to read from.
bool read_through_pipe(std::uint64_t address, void *target, std::size_t size)
{
    constexpr std::size_t PIECE = 4096;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return false;
    std::size_t done = 0;
    while (done < size) {
        const std::size_t piece = std::min(PIECE, size - done);
        const auto wanted = static_cast<ssize_t>(piece);
        if (write(ends[1], at_address(address + done), piece) != wanted) break;
        if (read(ends[0], static_cast<std::byte *>(target) + done, piece) != wanted) break;
        done += piece;
    }
    close(ends[0]);
    close(ends[1]);
    return done == size;
}

value read_stored_record(answer_reader &reader, const parameter &where, int index,
                         const std::byte *bytes, std::size_t entries)
{
    value read{value_kind::record, {}, {}};
    const selected_fields selected(*where.record, bytes);
    for (std::size_t entry = 0; entry < entries; entry++) {
        for (const field &part : where.record->fields) {
            const std::byte *at = bytes + entry * where.record->size + part.offset;
            const bool is_request = part.name.starts_with("requests");
            if (is_request || !selected.has(part)) {
                if (!is_request && may_name(where, part.what)) reader.pass_over(1);
                read.scalars.emplace_back();
                continue;
            }
            read.scalars.push_back(
                reader.read(where, part.what, load(at, part.width), index, entry));
        }
    }
    return read;
}

} // namespace

bool read_safely(std::uint64_t address, void *target, std::size_t size)
{
    if (size == 0) return true;
    if (!is_readable_at_once) return read_through_pipe(address, target, size);
    const iovec to{target, size};
    // NOLINTNEXTLINE(performance-no-int-to-ptr): it is the program's
    const iovec from{reinterpret_cast<void *>(static_cast<std::uintptr_t>(address)), size};
    const ssize_t read = process_vm_readv(getpid(), &to, 1, &from, 1, 0);
    if (read < 0 && (errno == ENOSYS || errno == EPERM)) {
        is_readable_at_once = false;
        return read_through_pipe(address, target, size);
    }
    return read == static_cast<ssize_t>(size);
}

std::vector<value> read_arguments(const operation_schema &which, const raw_arguments &passed,
                                  const bindings &known)
{
    std::vector<value> read;
    read.reserve(which.parameters.size());
    for (std::size_t i = 0; i < which.parameters.size(); i++) {
        read.push_back(read_argument(which, i, passed, known));
    }
    return read;
}

raw_arguments counts_before(const operation_schema &which, const raw_arguments &passed,
                            bool is_readable)
{
    raw_arguments counts{};
    for (std::size_t i = 0; i < which.parameters.size(); i++) {
        const parameter &where = which.parameters[i];
        if (!where.is_count() || !where.by_address || passed[i] == 0) continue;
        std::byte bytes[8] = {};
        if (is_readable) {
            counts[i] = load(at_address(passed[i]), where.width);
        } else if (read_safely(passed[i], bytes, where.width)) {
            counts[i] = load(bytes, where.width);
        }
    }
    return counts;
}

answer read_answer(call &made, std::uint64_t result, const raw_arguments &passed,
                   const raw_arguments &room, bindings &known, const namer &give)
{
    const operation_schema &which = schema_of(made.operation);
    answer read;
    read.stored.resize(which.parameters.size());
    answer_reader reader(made, known, give);
    if (which.result.shape == shape::number) {
        read.result = number_value(
            reader.read(which.result, which.result.what, cut(result, which.result), -1, 0));
    }
    for (std::size_t i = 0; i < which.parameters.size(); i++) {
        const parameter &where = which.parameters[i];
        const int index = static_cast<int>(i);
        if (passed[i] == 0 || made.arguments[i].kind == value_kind::null ||
            made.arguments[i].kind == value_kind::unreadable || !has_stored(which, where, result)) {
            if (passed[i] != 0 && where.is_written() && where.shape == shape::number &&
                may_name(where, where.what)) {
                reader.pass_over(1);
            }
            continue;
        }
        if (where.shape == shape::bytes) {
            std::uint64_t count = 0;
            if (which.is_system()) {
                count = request_size(passed[i - 1]);
            } else {
                const auto at = static_cast<std::size_t>(where.count_at);
                if (passed[at] == 0) continue;
                count = std::min(load(at_address(passed[at]), 4), room[at]);
            }
            std::string bytes(reinterpret_cast<const char *>(at_address(passed[i])), count);
            if (which.is_system()) bytes = in_sequence_order(passed[i - 1], std::move(bytes));
            read.stored[i] = bytes_value(std::move(bytes));
            continue;
        }
        std::size_t entries = 1;
        if (where.count_at >= 0) {
            const auto at = static_cast<std::size_t>(where.count_at);
            if (passed[at] == 0) continue;
            entries =
                std::min<std::uint64_t>({load(at_address(passed[at]), 4), room[at], ENTRIES_MAX});
        }
        const std::byte *bytes = at_address(passed[i]);
        read.stored[i] =
            where.record
                ? read_stored_record(reader, where, index, bytes, entries)
                : number_value(reader.read(where, where.what, load(bytes, where.width), index, 0));
    }
    return read;
}

std::byte *laid_out_arguments::room(std::size_t index, std::size_t size)
{
    std::vector<std::byte> &memory = memory_[index];
    memory.assign(size + SPARE, std::byte{0});
    raw_[index] = reinterpret_cast<std::uintptr_t>(memory.data());
    return memory.data();
}

void laid_out_arguments::lay_out(const call &made, const bindings &known)
{
    const operation_schema &which = schema_of(made.operation);
    for (std::size_t i = 0; i < which.parameters.size(); i++) {
        const parameter &where = which.parameters[i];
        const value &given = made.arguments[i];
        raw_[i] = 0;
        switch (given.kind) {
        case value_kind::null:
            break;
        case value_kind::unreadable:
            raw_[i] = BAD_ADDRESS;
            break;
        case value_kind::number: {
            const std::uint64_t number = known.number_of(given.one());
            if (where.by_address) {
                store(room(i, 8), where.width, number);
            } else {
                raw_[i] = number;
            }
            break;
        }
        case value_kind::record: {
            std::byte *bytes = room(i, where.record->size);
            for (std::size_t at = 0; at < given.scalars.size(); at++) {
                const field &part = where.record->fields[at];
                store(bytes + part.offset, part.width, known.number_of(given.scalars[at]));
            }
            break;
        }
        case value_kind::bytes: {
            const std::string bytes =
                made.operation == IOCTL ? in_sequence_order(raw_[i - 1], given.bytes) : given.bytes;
            std::memcpy(room(i, bytes.size() + 1), bytes.data(), bytes.size());
            break;
        }
        case value_kind::any_bytes:
            room(i, std::min<std::uint64_t>(given.one().number, DATA_MAX));
            break;
        case value_kind::absent: {
            std::size_t size = where.record ? where.record->size : where.width;
            if (where.count_at >= 0) {
                const value &count = made.arguments[static_cast<std::size_t>(where.count_at)];
                const std::uint64_t counted =
                    count.kind == value_kind::number ? known.number_of(count.one()) : 0;
                size = where.record ? size * std::min<std::uint64_t>(counted, 4096)
                                    : std::min<std::uint64_t>(counted, DATA_MAX);
            }
            room(i, size);
            break;
        }
        }
    }
}

} // namespace sequence
