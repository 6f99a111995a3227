// SPDX-License-Identifier: MIT
//
// Text from outside: made printable, and kept within bounds.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/common/kept_text.h"
#include "tools/common/printable.h"
#include "tools/tavor-run/formats/printed.h"

namespace {

using tavor_run::printed_lines;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using tools::kept_text;
using tools::printable;

TEST(printable_text, controls_and_bytes_that_are_no_text_are_written_out)
{
    EXPECT_EQ(printable("plain \\ text, \xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80"),
              "plain \\ text, \xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80");
    EXPECT_EQ(printable("a\x1b[2Jb\x7f\n\r"), "a\\x1b[2Jb\\x7f\\x0a\\x0d");
    EXPECT_EQ(printable(std::string_view("\0", 1)), "\\x00");
    EXPECT_EQ(printable("\xc2\x9b"), "\\xc2\\x9b"); // U+009B starts what ESC [ starts
    EXPECT_EQ(printable("\xc2\xa0"), "\xc2\xa0");
    EXPECT_EQ(printable("\x9b \xff \xc3"), "\\x9b \\xff \\xc3");
    EXPECT_EQ(printable("\xc0\x80 \xe0\x80\x80"), "\\xc0\\x80 \\xe0\\x80\\x80"); // too long
    EXPECT_EQ(printable("\xed\xa0\x80 \xef\xbf\xbe"),
              "\\xed\\xa0\\x80 \\xef\\xbf\\xbe"); // no characters
    EXPECT_EQ(printable("a\n\tb\x1b", "\n\t"), "a\n\tb\\x1b");
}

TEST(text_within_bounds, beginning_and_end_are_kept)
{
    kept_text text(10);
    EXPECT_TRUE(text.empty());
    text.append("0123456789");
    EXPECT_EQ(text.take(), "0123456789");
    for (char next = 'a'; next <= 'z'; next++) {
        text.append(std::string(1, next));
    }
    EXPECT_EQ(text.take(), "01234\n[26 bytes left out]\nvwxyz");
    kept_text shortened(10);
    shortened.append("0123456789abcdef");
    EXPECT_EQ(shortened.take(4), "01\n[12 bytes left out]\nef");
    kept_text at_once(4);
    at_once.append("0123456789");
    EXPECT_EQ(at_once.take(), "01\n[6 bytes left out]\n89");
}

TEST(text_within_bounds, long_outputs_have_their_first_and_last_lines)
{
    EXPECT_THAT(printed_lines(""), IsEmpty());
    EXPECT_THAT(printed_lines("a\x1b\n\nb"), ElementsAre("a\\x1b", "", "b"));
    std::string many;
    for (int i = 0; i < 1000; i++) {
        many += std::to_string(i) + "\n";
    }
    const std::vector<std::string> lines = printed_lines(many);
    ASSERT_THAT(lines, SizeIs(101));
    EXPECT_EQ(lines[49], "49");
    EXPECT_EQ(lines[50], "[900 lines left out]");
    EXPECT_EQ(lines[51], "950");
    EXPECT_EQ(lines[100], "999");
    EXPECT_EQ(printed_lines(std::string(600, 'x')).front(),
              std::string(500, 'x') + " [100 bytes left out]");
}

} // namespace
