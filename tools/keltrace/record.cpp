// SPDX-License-Identifier: MIT
//
// The sequence as it comes about. A call's line is written when it begins and, unless another call
// has begun meanwhile, replaced by the whole line when it returns.
#include "tools/keltrace/record.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <link.h>
#include <map>
#include <mutex>
#include <unistd.h>
#include <vector>

#include "tools/keltrace/state.h"
#include "tools/sequence/printer.h"

namespace keltrace {

namespace record {

namespace {

struct open_call {
    const call *which;
    bool is_last_line = true;
    off_t at;
};

struct recording {
    std::mutex turn; // to make a call that does not wait
    std::mutex lock; // of the rest
    int file = -1;
    bool has_places = true; // a pipe has none: lines stay as they are
    off_t end = 0;
    sequence::bindings known;
    std::vector<sequence::variable_info> variables;
    std::array<unsigned, static_cast<std::size_t>(sequence::role::program_address) + 1> given{};
    std::vector<open_call> open;
};

constinit recording *current = nullptr;
constinit std::atomic<unsigned> threads{0};
[[gnu::tls_model("initial-exec")]] thread_local unsigned thread_number = 0;

std::uint16_t own_thread()
{
    if (thread_number == 0) thread_number = threads.fetch_add(1) + 1;
    return static_cast<std::uint16_t>(thread_number);
}

// What cannot be written ends the recording; the program goes on.
void give_up(int error)
{
    dprintf(STDERR_FILENO, "keltrace: KELTRACE_RECORD: %s: the recording ends here\n",
            strerror(error));
    if (current->has_places && ftruncate(current->file, current->end) != 0) return;
    close(current->file);
    current->file = -1;
}

void write_at(const std::string &text, off_t at)
{
    if (current->file < 0) return;
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = current->has_places
                                    ? pwrite(current->file, text.data() + done, text.size() - done,
                                             at + static_cast<off_t>(done))
                                    : write(current->file, text.data() + done, text.size() - done);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return give_up(errno);
        done += static_cast<std::size_t>(written);
    }
    current->end = at + static_cast<off_t>(text.size());
}

// A line behind the others: what is open before it gets a line of its own for its end.
void add_line(const std::string &line)
{
    for (open_call &each : current->open) each.is_last_line = false;
    write_at(line, current->end);
}

void replace_last_line(const std::string &line, off_t at)
{
    const off_t before = current->end;
    write_at(line, at);
    if (current->file >= 0 && current->end < before &&
        ftruncate(current->file, current->end) != 0) {
        give_up(errno);
    }
}

// The descriptor is kept away from those that the program gets.
int out_of_the_way(int file)
{
    constexpr int FIRST = 512;
    const int moved = fcntl(file, F_DUPFD_CLOEXEC, FIRST);
    if (moved < 0) return file;
    close(file);
    return moved;
}

struct build_id_search {
    std::uintptr_t address;
    std::string found;
};

std::string build_id_in(const char *notes, std::size_t size)
{
    std::string text;
    for (std::size_t at = 0; at + sizeof(ElfW(Nhdr)) <= size;) {
        ElfW(Nhdr) note;
        memcpy(&note, notes + at, sizeof note);
        const std::size_t name = at + sizeof note;
        const std::size_t content = name + ((note.n_namesz + 3) & ~std::size_t{3});
        at = content + ((note.n_descsz + 3) & ~std::size_t{3});
        if (note.n_type != NT_GNU_BUILD_ID || at > size) continue;
        for (std::size_t i = 0; i < note.n_descsz; ++i) {
            char digits[4];
            snprintf(digits, sizeof digits, "%02x",
                     static_cast<unsigned>(static_cast<unsigned char>(notes[content + i])));
            text += digits;
        }
        break;
    }
    return text;
}

int find_build_id(dl_phdr_info *object, std::size_t, void *data)
{
    auto *search = static_cast<build_id_search *>(data);
    bool is_it = false;
    const char *notes = nullptr;
    std::size_t size = 0;
    for (int i = 0; i < object->dlpi_phnum; ++i) {
        const auto &segment = object->dlpi_phdr[i];
        const std::uintptr_t start = object->dlpi_addr + segment.p_vaddr;
        if (segment.p_type == PT_LOAD && search->address >= start &&
            search->address - start < segment.p_memsz) {
            is_it = true;
        }
        if (segment.p_type == PT_NOTE && size == 0) {
            notes = reinterpret_cast<const char *>(start);
            size = segment.p_memsz;
        }
    }
    if (is_it && notes != nullptr) search->found = build_id_in(notes, size);
    return is_it ? 1 : 0;
}

const char *after_slash(const char *path)
{
    const char *slash = strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

// "libkel.so 0123abcd...": no path, which says nothing on another machine.
std::string library_name()
{
    static constinit std::atomic<void *> found{nullptr};
    void *function = next_function(found, "kel_nocrash_set");
    Dl_info about{};
    if (dladdr(function, &about) == 0 || about.dli_fname == nullptr) return "";
    build_id_search search{reinterpret_cast<std::uintptr_t>(function), {}};
    dl_iterate_phdr(find_build_id, &search);
    const std::string name = after_slash(about.dli_fname);
    return search.found.empty() ? name : name + " " + search.found;
}

std::string program_name()
{
    std::ifstream file("/proc/self/cmdline");
    std::string words{std::istreambuf_iterator<char>(file), {}};
    if (!words.empty() && words.back() == '\0') words.pop_back();
    const std::size_t end = words.find('\0');
    std::string name = after_slash(words.substr(0, end).c_str());
    if (end != std::string::npos) name += words.substr(end);
    for (char &each : name) {
        if (each == '\0') each = ' ';
    }
    return name;
}

sequence::variable give_name(sequence::role what)
{
    const unsigned number = ++current->given[static_cast<std::size_t>(what)];
    current->variables.push_back(
        {std::string(sequence::name_of(what)) + std::to_string(number), what});
    return static_cast<sequence::variable>(current->variables.size() - 1);
}

// What a refused call was to copy does not matter, and may never have been written.
void forget_unread_data(sequence::call &made, std::uint64_t result)
{
    const auto &which = sequence::schema_of(made.operation);
    if (sequence::has_succeeded(which, result)) return;
    for (std::size_t i = 0; i < made.arguments.size(); ++i) {
        sequence::value &given = made.arguments[i];
        if (which.parameters[i].shape == sequence::shape::bytes && !which.is_system() &&
            given.kind == sequence::value_kind::bytes) {
            given = {sequence::value_kind::any_bytes, {{given.bytes.size()}}, {}};
        }
    }
}

} // namespace

std::string open_file(const char *path)
{
    const int file = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (file < 0) return std::string(path) + ": " + strerror(errno);
    auto *made = new recording;
    made->file = out_of_the_way(file);
    made->has_places = lseek(made->file, 0, SEEK_CUR) >= 0;
    current = made;
    write_at(sequence::header_text({1, library_name(), program_name()}), 0);
    return {};
}

bool wanted()
{
    return current != nullptr && current->file >= 0;
}

call::call(sequence::operation which, const raw_arguments &passed) : passed_(passed)
{
    const int error = errno;
    const auto &schema = sequence::schema_of(which);
    if (!sequence::may_wait(which)) turn_ = std::unique_lock(current->turn);
    const std::lock_guard guard(current->lock);
    made_.operation = which;
    made_.thread = own_thread();
    made_.arguments = sequence::read_arguments(schema, passed, current->known);
    room_ = sequence::counts_before(schema, passed, false);
    const off_t at = current->end;
    add_line(sequence::thread_text(made_.thread) +
             sequence::call_text(made_, current->variables, false) + " ...\n");
    current->open.push_back({this, current->has_places, at});
    errno = error;
}

void call::returned(std::uint64_t result)
{
    const int error = errno;
    const std::lock_guard guard(current->lock);
    const auto answer =
        sequence::read_answer(made_, result, passed_, room_, current->known, give_name);
    forget_unread_data(made_, result);
    std::size_t i = 0;
    while (current->open[i].which != this) ++i;
    const open_call begun = current->open[i];
    current->open.erase(current->open.begin() + static_cast<std::ptrdiff_t>(i));

    std::string line = sequence::thread_text(made_.thread);
    line += begun.is_last_line ? sequence::call_text(made_, current->variables)
                               : sequence::names_text(made_, current->variables) + "returned()";
    line += " -> " + sequence::answer_text(made_, answer, current->variables) + "\n";
    if (begun.is_last_line) {
        replace_last_line(line, begun.at);
    } else {
        add_line(line);
    }
    if (turn_) turn_.unlock();
    errno = error;
}

bool is_known_descriptor(int descriptor)
{
    const std::lock_guard guard(current->lock);
    return descriptor > 0 && current->known.is_known(sequence::role::descriptor,
                                                     static_cast<std::uint64_t>(descriptor));
}

void comment(const char *text)
{
    const std::lock_guard guard(current->lock);
    add_line(std::string("# ") + text + "\n");
}

} // namespace record

} // namespace keltrace
