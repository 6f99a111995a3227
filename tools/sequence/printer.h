// SPDX-License-Identifier: MIT
//
// A sequence as text (docs/sequences.md).
#pragma once

#include <string>

#include "tools/sequence/sequence.h"

namespace sequence {

enum class printed : std::uint8_t { calls, calls_and_answers };

std::string header_text(const header &printed);

// "0x2a"
std::string hexadecimal(std::uint64_t number);

// Parts of lines, for messages and for recording. `variables` are those of the whole.
std::string scalar_text(const scalar &one, role what, interface::form shown, bool is_signed,
                        const std::vector<variable_info> &variables);
std::string value_text(const value &one, const parameter &where,
                       const std::vector<variable_info> &variables);
// "packet1 = get_packet(client1, 0, 1500, 1)"; without what it defines before it has returned.
std::string call_text(const call &made, const std::vector<variable_info> &variables,
                      bool with_names = true);
// "packet1, error=0", or the way it ended: "hang".
std::string answer_text(const call &made, const answer &given,
                        const std::vector<variable_info> &variables);
// "packet1, _ = ", empty when nothing is defined.
std::string names_text(const call &made, const std::vector<variable_info> &variables);
// "@2 " for threads other than the first.
std::string thread_text(std::uint16_t thread);

std::string to_text(const call_sequence &whole, printed what);

} // namespace sequence
