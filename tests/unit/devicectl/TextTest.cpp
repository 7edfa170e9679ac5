// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/Text.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace devicectl {

using namespace std::string_literals;

namespace {

TEST(Text, TellsUtf8) {
    EXPECT_TRUE(isUtf8(""));
    EXPECT_TRUE(isUtf8("plain"));
    EXPECT_TRUE(isUtf8("\0\x7f"s));
    EXPECT_TRUE(isUtf8("\xc2\x80 \xdf\xbf \xe0\xa0\x80 \xef\xbf\xbf \xf0\x90\x80\x80 \xf4\x8f\xbf\xbf"));
}

TEST(Text, RefusesWhatIsNoUtf8) {
    for (const std::string& text : {
             "\x80"s, "\xff"s, "\xc2"s, "\xe2\x82"s, "\xf0\x9f\x98"s,         // alone, cut off
             "\xc0\x80"s, "\xc1\xbf"s, "\xe0\x9f\xbf"s, "\xf0\x8f\xbf\xbf"s,  // overlong
             "\xed\xa0\x80"s, "\xed\xbf\xbf"s,                                // surrogates
             "\xf4\x90\x80\x80"s, "\xf5\x80\x80\x80"s,                        // past the last character
             "\xe2\x28\xa1"s, "\xc3("s,                                       // no continuation
         }) {
        EXPECT_FALSE(isUtf8(text)) << escapeLine(text);
        EXPECT_FALSE(isUtf8("good " + text + " good"));
    }
}

TEST(Text, KeepsWhatIsHarmless) {
    const std::string text = "KINGSTON \xc3\xbc\xe2\x82\xac\xf0\x9f\x98\x80 \"quoted\" ~!";
    EXPECT_EQ(escapeLine(text), text);
    EXPECT_EQ(escapeText(text), text);
}

TEST(Text, EscapesWhatATerminalObeys) {
    EXPECT_EQ(escapeLine("\x1b[2Jgone"), "\\x1b[2Jgone");
    EXPECT_EQ(escapeLine("a\nb\rc\td\x7f"s), "a\\x0ab\\x0dc\\x09d\\x7f");
    EXPECT_EQ(escapeLine("a\0b"s), "a\\x00b");
    EXPECT_EQ(escapeLine("\xc2\x9b"
                         "2J"),
              "\\xc2\\x9b2J")
        << "an escape sequence in one character";
    EXPECT_EQ(escapeLine("\x9b"
                         "2J"),
              "\\x9b2J");
    EXPECT_EQ(escapeLine("\xe2\x80\xaetxt.exe"), "\\xe2\\x80\\xaetxt.exe") << "turns the direction around";
    EXPECT_EQ(escapeLine("\xd8\x9c"), "\\xd8\\x9c") << "a mark of direction, too";
    EXPECT_EQ(escapeLine("\xe2\x80\xa8"), "\\xe2\\x80\\xa8") << "ends a line";
    EXPECT_EQ(escapeLine("\xe2\x82"), "\\xe2\\x82");
}

TEST(Text, DoublesTheBackslashOfALineOnly) {
    EXPECT_EQ(escapeLine("a\\x1b"), "a\\\\x1b") << "must differ from an escaped character";
    EXPECT_EQ(escapeText("a\\x1b"), "a\\x1b");
}

TEST(Text, KeepsTheLayoutOfATextOnly) {
    EXPECT_EQ(escapeText("a\n\tb\r\x1b"), "a\n\tb\\x0d\\x1b");
}

TEST(Text, EscapesAnyBytesToUtf8WithoutControls) {
    std::mt19937 random(20);
    std::uniform_int_distribution<int> byte(0, 255);
    for (int round = 0; round < 20000; ++round) {
        std::string text;
        for (int i = 0; i < 12; ++i) {
            text += static_cast<char>(byte(random));
        }
        const std::string line = escapeLine(text);
        ASSERT_TRUE(isUtf8(line));
        ASSERT_EQ(escapeText(line), line) << "something unsafe was left";
        for (const char c : line) {
            ASSERT_FALSE(static_cast<unsigned char>(c) < 0x20 || c == 0x7f);
        }
    }
}

}  // namespace

}  // namespace devicectl
