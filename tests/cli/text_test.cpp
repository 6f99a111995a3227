// SPDX-License-Identifier: MIT
//
// Text from outside: made printable, and kept within bounds.
#include <gtest/gtest.h>

#include "tools/common/kept_text.h"
#include "tools/common/printable.h"

namespace {

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
    kept_text at_once(4);
    at_once.append("0123456789");
    EXPECT_EQ(at_once.take(), "01\n[6 bytes left out]\n89");
}

} // namespace
