// SPDX-License-Identifier: MIT
//
// The text of sequences: what is printed is read as the same, and what is wrong is refused whole,
// with line and column.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/sequence/data.h"
#include "tools/sequence/parser.h"
#include "tools/sequence/printer.h"

namespace {

using namespace sequence;

const std::string HEADER = "sequence version=1 library=\"libkel.so\" program=\"tavor\"\n";

std::string printed_again(const std::string &text)
{
    return to_text(from_text(text), printed::calls_and_answers);
}

class lines_of_a_sequence : public testing::TestWithParam<const char *> {};

TEST_P(lines_of_a_sequence, are_printed_as_they_were_read)
{
    const std::string text = HEADER + GetParam();
    EXPECT_EQ(printed_again(text), text);
}

INSTANTIATE_TEST_SUITE_P(
    text, lines_of_a_sequence,
    testing::Values(
        "nocrash_set() -> 0\n", "client1 = register_client(\"a \\\"b\\\\\\x0a\", ALWAYS, 6)\n",
        "register_client(null, STANDBY, 4294967295, client=null) -> EINVAL\n",
        "packet1 = get_packet(0xdeadface, 0, 1500, 1, error=null) -> packet1\n",
        "#a comment\nrecv(0xdeadface) -> 0\n#the last\n", "buf_adj(null, -512) -> EINVAL\n",
        "buf_get_paddr_iov(0, 0, entries=null) -> EINVAL\n",
        "set_data(0xfedcba98, 4711, 0, pattern(1, 64) hex(00) fill(0xdb, 16), 81) -> EINVAL\n",
        "tlv_setdata(0xfedcba98, 1, any(1024), 1024) -> EINVAL\n",
        "metadata_init() -> done, group={}\n",
        "event_wait(0xbeef, null) ...\n@2 event_clear(0xbeef) -> EINVAL\nreturned() -> EINTR\n",
        "recv(0xbeef) -> crash SIGSEGV\n", "recv(0xbeef) -> hang\n",
        "descriptor1 = getfd(0xbeef)\nselect(descriptor1, 0, {microseconds=30000})\n",
        "packet1, _, packet3 = get_packet_list({count=3, requests[0].size=64})\n"));

struct damage {
    const char *text;
    std::size_t line;
    std::size_t column;
};

class damaged_sequence : public testing::TestWithParam<damage> {};

TEST_P(damaged_sequence, is_refused_with_its_place)
{
    try {
        from_text(GetParam().text);
        FAIL() << "was read";
    } catch (const parse_error &error) {
        EXPECT_EQ(error.line, GetParam().line) << error.what();
        EXPECT_EQ(error.column, GetParam().column) << error.what();
    }
}

#define H "sequence version=1 library=\"\" program=\"\"\n"
INSTANTIATE_TEST_SUITE_P(
    text, damaged_sequence,
    testing::Values(damage{"", 1, 1}, damage{"nonsense\n", 1, 1},
                    damage{"sequence version=2 library=\"\" program=\"\"\n", 1, 18},
                    damage{H "recv(1", 2, 7}, damage{H "recv(1)", 2, 8},
                    damage{H "receive(1)\n", 2, 1}, damage{H "recv(client1)\n", 2, 6},
                    damage{H "recv()\n", 2, 6}, damage{H "recv(1, 2)\n", 2, 9},
                    damage{H "recv(1) -> 0 0\n", 2, 14}, damage{H "recv(1x)\n", 2, 7},
                    damage{H "recv(1) ...\nrecv(2)\n", 3, 1}, damage{H "returned()\n", 2, 1},
                    damage{H "a = recv(1)\na = recv(1)\n", 3, 1},
                    damage{H "EINVAL = recv(1)\n", 2, 1}, damage{H "a, b = recv(1)\n", 2, 4},
                    damage{H "set_data(1, 0, 0, hex(0), 1)\n", 2, 23},
                    damage{H "set_data(1, 0, 0, hex(00), 2)\n", 2, 30},
                    damage{H "set_data(1, 0, 0, fill(256, 1), 1)\n", 2, 24},
                    damage{H "@0 recv(1)\n", 2, 2}, damage{H "event_add(1, {typ=1})\n", 2, 15},
                    damage{H "register_client(\"a, 0, 6)\n", 2, 26},
                    damage{H "set_length(null, 2)\n", 2, 12}));
#undef H

// Any cut and any single wrong byte is either a sequence again or refused; nothing else happens.
TEST(sequence_text, survives_noise)
{
    const std::string text =
        HEADER + "client1 = register_client(\"a\", ALWAYS, 6) -> 0, client=client1\n"
                 "packet1 = get_packet(client1, 0, 64, 1) -> packet1, error=0\n"
                 "set_data(packet1, OFFSET_DATA, 0, pattern(7, 64), 64) -> 0\n"
                 "event_add(client1, {type=2, object=0x80}) -> EINVAL\n"
                 "event_wait(client1, {seconds=1}) ...\nreturned() -> 0, event={type=2}\n";
    ASSERT_EQ(printed_again(text), text);
    std::size_t refused = 0;
    const auto read = [&refused](const std::string &damaged) {
        try {
            from_text(damaged);
        } catch (const parse_error &) {
            refused++;
        }
    };
    for (std::size_t i = 0; i < text.size(); i++) {
        read(text.substr(0, i));
        for (const char wrong : {'\0', ' ', '(', '9', '"', '\n', 'z', '-'}) {
            std::string changed = text;
            changed[i] = wrong;
            read(changed);
        }
    }
    EXPECT_GT(refused, text.size());
}

TEST(sequence_data, is_written_by_its_patterns)
{
    const auto shown = [](const std::string &bytes) {
        const call_sequence whole = from_text(HEADER + "tlv_setdata(1, 1, hex(), 0)\n");
        return value_text(bytes_value(bytes), schema_of(whole.calls[0].operation).parameters[2],
                          {});
    };
    const std::string pattern = bytes_of({stretch_kind::pattern, 120, 1500});
    EXPECT_EQ(shown(pattern), "pattern(120, 1500)");
    EXPECT_EQ(shown(pattern.substr(128)), "pattern(0, 1372, 128)");
    EXPECT_EQ(bytes_of({stretch_kind::pattern, 0, 1372, 128}), pattern.substr(128));
    EXPECT_EQ(shown(pattern.substr(0, 512) + std::string(512, '\xdb')),
              "pattern(120, 512) fill(0xdb, 512)");
    EXPECT_EQ(shown("ab"), "hex(6162)");
    EXPECT_EQ(shown(""), "hex()");
}

TEST(sequence_part, keeps_what_is_named)
{
    const call_sequence whole =
        from_text(HEADER + "a = recv(1)\nevent_wait(0x2, null) ...\n@2 recv(0x3)\nreturned()\n");
    const auto part = selection(whole, {false, true, false});
    EXPECT_EQ(to_text(part, printed::calls), HEADER + "event_wait(0x2, null) ...\nreturned()\n");
}

} // namespace
