// SPDX-License-Identifier: MIT
#include "tools/histories/history.h"

#include <cstring>
#include <stdexcept>

#include "tools/sequence/parser.h"
#include "tools/sequence/printer.h"

namespace histories {

std::string to_message(const history &whole)
{
    const std::uint64_t count = whole.times.size();
    std::string message(reinterpret_cast<const char *>(&count), sizeof count);
    message.append(reinterpret_cast<const char *>(whole.times.data()), count * sizeof(interval));
    return message + sequence::to_text(whole.made, sequence::printed::calls_and_answers);
}

history from_message(std::string_view message)
{
    std::uint64_t count = 0;
    if (message.size() < sizeof count) throw std::runtime_error("a history was cut off");
    std::memcpy(&count, message.data(), sizeof count);
    message.remove_prefix(sizeof count);
    if (message.size() / sizeof(interval) < count) {
        throw std::runtime_error("a history was cut off");
    }
    history whole;
    whole.times.resize(count);
    std::memcpy(whole.times.data(), message.data(), count * sizeof(interval));
    message.remove_prefix(count * sizeof(interval));
    whole.made = sequence::from_text(message);
    if (whole.made.calls.size() != count || whole.made.answers.size() != count) {
        throw std::runtime_error("a history without its times");
    }
    return whole;
}

} // namespace histories
