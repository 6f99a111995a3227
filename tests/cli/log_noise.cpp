// SPDX-License-Identifier: MIT
#include "tests/cli/log_noise.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>

#include "tools/common/registry.h"

namespace log_noise {

namespace {

constexpr std::size_t NAME_COLUMN = 40;

constexpr std::array<std::string_view, 8> FOREIGN = {
    "[   12.345678] usb 1-1: new high-speed USB device number 2 using xhci_hcd\n",
    "<6>[ 1234.000001] eth0: link up\n",
    "[    3.141592] random: crng init done",
    "random: crng init done\n",
    "INIT: Id \"T0\" respawning too fast\n",
    "\r\n",
    "\n",
    "login: ",
};

} // namespace

std::vector<truth> truths_in(const std::string &log)
{
    std::vector<truth> found(tools::all_cases().size());
    auto next = found.begin();
    truth *last = nullptr;
    const auto close_before = [&](std::size_t end) {
        if (last == nullptr) {
            return;
        }
        last->end = end;
        const std::size_t line = log.rfind('\n', end - 2) + 1;
        last->start = std::max(line, last->name + NAME_COLUMN + 1);
        const std::string_view text = std::string_view(log).substr(last->start, end - last->start);
        for (const std::string_view word : {"PASS", "IGNORE", "FAIL"}) {
            if (text.find(word) != std::string_view::npos) {
                last->verdict = word;
            }
        }
    };
    for (const tools::test_case &each : tools::all_cases()) {
        std::string column(each.name.substr(0, NAME_COLUMN));
        column.resize(NAME_COLUMN + 1, ' ');
        const std::size_t at = log.find("\n" + column);
        const std::size_t name = at == std::string::npos ? 0 : at + 1; // in a ZEB log the first
        close_before(name);
        last = &*next++;
        last->name = name;
    }
    const std::size_t rule = log.find("\n" + std::string(74, '=') + "\n");
    close_before(rule == std::string::npos ? log.size() : rule + 1);
    return found;
}

std::string recorded(const std::string &file)
{
    std::ifstream stream(TAVOR_SOURCE_DIR "/tests/cli/data/" + file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

noisy_log::noisy_log(const std::string &log, unsigned seed) : random(seed)
{
    bytes.reserve(log.size());
    for (std::size_t i = 0; i < log.size(); i++) {
        bytes.push_back({log[i], static_cast<std::ptrdiff_t>(i)});
    }
}

std::size_t noisy_log::below(std::size_t limit)
{
    return limit == 0 ? 0 : random() % limit;
}

std::size_t noisy_log::line_start(std::size_t at) const
{
    while (at > 0 && bytes[at - 1].value != '\n') {
        at--;
    }
    return at;
}

void noisy_log::insert(std::size_t at, std::string_view noise)
{
    std::vector<byte> added;
    for (const char value : noise) {
        added.push_back({value, -1});
    }
    bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(at), added.begin(), added.end());
}

void noisy_log::erase(std::size_t first, std::size_t last)
{
    bytes.erase(bytes.begin() + static_cast<std::ptrdiff_t>(first),
                bytes.begin() + static_cast<std::ptrdiff_t>(std::min(last, bytes.size())));
}

void noisy_log::disturb()
{
    constexpr std::size_t KINDS = 8;
    constexpr std::size_t LONG_LOSS = 400;
    const std::size_t at = below(bytes.size());
    switch (below(KINDS)) {
    case 0:
        insert(at, FOREIGN[below(FOREIGN.size())]);
        break;
    case 1:
        insert(line_start(at), FOREIGN[below(FOREIGN.size())]);
        break;
    case 2:
        erase(at, at + 1 + below(LONG_LOSS));
        break;
    case 3: // a loss that ends or begins at a seam
        erase(line_start(at) + NAME_COLUMN + 1,
              line_start(at) + NAME_COLUMN + 1 + below(LONG_LOSS));
        break;
    case 4: { // whole lines
        const std::size_t from = line_start(at);
        erase(from, line_start(std::min(from + below(LONG_LOSS), bytes.size() - 1)));
        break;
    }
    case 5: // one byte
        bytes[at] = {static_cast<char>(below(256)), -1};
        break;
    case 6: // from the name column of one case to that of a later one
        erase(line_start(at) + NAME_COLUMN + 1,
              line_start(std::min(at + below(LONG_LOSS), bytes.size() - 1)) + NAME_COLUMN + 1);
        break;
    default: // overwritten
        for (std::size_t i = 0; i < 1 + below(50) && at + i < bytes.size(); i++) {
            bytes[at + i] = {static_cast<char>(' ' + below(95)), -1};
        }
        break;
    }
    if (bytes.empty()) {
        insert(0, "\n");
    }
}

void noisy_log::add_stamps()
{
    unsigned second = 0;
    std::vector<byte> stamped;
    bool at_start = true;
    for (const byte &each : bytes) {
        if (at_start) {
            std::string stamp = "[2024-03-01 12:" + std::to_string(10 + second / 60 % 50) + ":" +
                                std::to_string(10 + second % 50) + ".123] ";
            second++;
            for (const char value : stamp) {
                stamped.push_back({value, -1});
            }
        }
        stamped.push_back(each);
        at_start = each.value == '\n';
    }
    bytes = std::move(stamped);
}

void noisy_log::add_returns()
{
    std::vector<byte> changed;
    for (const byte &each : bytes) {
        if (each.value == '\n') {
            changed.push_back({'\r', -1});
        }
        changed.push_back(each);
    }
    bytes = std::move(changed);
}

std::string noisy_log::text() const
{
    std::string result;
    for (const byte &each : bytes) {
        result += each.value;
    }
    return result;
}

std::vector<std::ptrdiff_t> noisy_log::places(std::size_t size) const
{
    std::vector<std::ptrdiff_t> found(size, -1);
    for (std::size_t i = 0; i < bytes.size(); i++) {
        if (bytes[i].from >= 0) {
            found[static_cast<std::size_t>(bytes[i].from)] = static_cast<std::ptrdiff_t>(i);
        }
    }
    return found;
}

bool has_kept(const std::vector<std::ptrdiff_t> &places, std::size_t first, std::size_t last)
{
    for (std::size_t from = first; from < last; from++) {
        const auto behind = static_cast<std::ptrdiff_t>(from - first);
        if (places[first] < 0 || places[from] != places[first] + behind) {
            return false;
        }
    }
    return true;
}

} // namespace log_noise
