#include "check/EscapedText.h"

#include "check/Utf8.h"

#include <gtest/gtest.h>

#include <string>

TEST(EscapedTextTest, LettersStayAndWhatMovesACursorIsEscaped) {
    EXPECT_EQ(EscapedText("a \xE7\xBD\x91 \xF0\x9F\x98\x80 \xC3\xA9"), "a \xE7\xBD\x91 \xF0\x9F\x98\x80 \xC3\xA9");
    EXPECT_EQ(EscapedText("a\tb\nc\x1B[31m\x7F"), "a\\x09b\\x0Ac\\x1B[31m\\x7F");
    EXPECT_EQ(EscapedText("C:\\x"), "C:\\\\x");
    EXPECT_EQ(EscapedText("\xC2\x9B"
                          "31m\xC2\xA9"),
              "\\xC2\\x9B31m\xC2\xA9");
    EXPECT_EQ(EscapedText("\xFF\xE7\xBD"), "\\xFF\\xE7\\xBD");
    // U+009F, U+00A0, U+061C, U+200A, U+200B, U+2028, U+202E, U+202F, U+2066, U+FEFF, U+1F600.
    EXPECT_EQ(EscapedText("\xC2\x9F \xC2\xA0 \xD8\x9C \xE2\x80\x8A \xE2\x80\x8B \xE2\x80\xA8"),
              "\\xC2\\x9F \xC2\xA0 \\xD8\\x9C \xE2\x80\x8A \\xE2\\x80\\x8B \\xE2\\x80\\xA8");
    EXPECT_EQ(EscapedText("\xE2\x80\xAE \xE2\x80\xAF \xE2\x81\xA6 \xEF\xBB\xBF \xF0\x9F\x98\x80"),
              "\\xE2\\x80\\xAE \xE2\x80\xAF \\xE2\\x81\\xA6 \\xEF\\xBB\\xBF \xF0\x9F\x98\x80");
}

TEST(EscapedTextTest, SequencesAreUtf8AsItsDefinitionSays) {
    struct Case {
        const char* text;
        size_t length;
    };
    for (const Case& each : {
             Case{"a", 1},
             Case{"\x7F", 1},
             Case{"\x80", 0},
             Case{"\xC1\x80", 0},
             Case{"\xC2\x80", 2},
             Case{"\xC2", 0},
             Case{"\xDF\xBF", 2},
             Case{"\xE0\x9F\x80", 0},
             Case{"\xE0\xA0\x80", 3},
             Case{"\xE0\xA0", 0},
             Case{"\xE1\x41\x80", 0},
             Case{"\xED\x9F\xBF", 3},
             Case{"\xED\xA0\x80", 0},
             Case{"\xEF\xBF\xBF", 3},
             Case{"\xF0\x8F\x80\x80", 0},
             Case{"\xF0\x90\x80\x80", 4},
             Case{"\xF0\x90\x80", 0},
             Case{"\xF1\x41\x80\x80", 0},
             Case{"\xF1\x80\x41\x80", 0},
             Case{"\xF4\x8F\xBF\xBF", 4},
             Case{"\xF4\x90\x80\x80", 0},
             Case{"\xF5\x80\x80\x80", 0},
             Case{"\xFF", 0},
         }) {
        EXPECT_EQ(Utf8SequenceLength(each.text, 0), each.length) << testing::PrintToString(each.text);
    }
    EXPECT_EQ(FirstInvalidUtf8("ab\xE7\xBD\x91"), std::string::npos);
    EXPECT_EQ(FirstInvalidUtf8("ab\xE7\xBD\x91\xE7"), 5U);
}
