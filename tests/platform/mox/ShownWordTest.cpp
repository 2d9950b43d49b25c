// How a message shows a word that came from outside: it must not be able to drive the
// terminal, hide what it holds, or make the message as large as itself.

#include <gtest/gtest.h>

#include <string>

#include "platform/mox/Exception.h"

namespace {

using Mox::shownWord;

TEST(ShownWord, PrintableTextAndUtf8ComeThroughQuoted) {
  EXPECT_EQ(shownWord("Ethernet1"), "'Ethernet1'");
  EXPECT_EQ(shownWord("caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80", '"'),
            "\"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80\"");
  EXPECT_EQ(shownWord("plain", '\0'), "plain");
  EXPECT_EQ(shownWord(""), "''");
}

TEST(ShownWord, ControlsAndBytesThatAreNotUtf8AreEscaped) {
  // An escape sequence, a NUL (which must not cut the word), the line controls, DEL.
  EXPECT_EQ(shownWord(std::string("a\x1b[31mb\0c\n\t\r\x7f", 13)),
            "'a\\x1b[31mb\\x00c\\n\\t\\r\\x7f'");
  // The quote and the backslash, so that the escapes above cannot be forged.
  EXPECT_EQ(shownWord("it's a\\x41"), "'it\\'s a\\\\x41'");
  EXPECT_EQ(shownWord("say \"hi\"", '"'), "\"say \\\"hi\\\"\"");
  // C1 controls (U+009B is CSI for some terminals), a lone continuation byte, a cut sequence,
  // an overlong form and a surrogate.
  EXPECT_EQ(shownWord("\xc2\x9b"
                      "1m"),
            "'\\xc2\\x9b1m'");
  EXPECT_EQ(shownWord("\x80"), "'\\x80'");
  EXPECT_EQ(shownWord("\xe2\x82"), "'\\xe2\\x82'");
  EXPECT_EQ(shownWord("\xc0\xaf"), "'\\xc0\\xaf'");
  EXPECT_EQ(shownWord("\xed\xa0\x80"), "'\\xed\\xa0\\x80'");
}

TEST(ShownWord, LongWordsAreCut) {
  const std::string huge(100 * 1000 * 1000, 'x');
  const std::string shown = shownWord(huge);
  EXPECT_EQ(shown, "'" + std::string(Mox::kShownBytes, 'x') + "...'");
  EXPECT_EQ(shownWord(std::string(Mox::kShownBytes, 'y')),
            "'" + std::string(Mox::kShownBytes, 'y') + "'");
  // A word of controls grows when escaped, but only to four times the cut.
  EXPECT_EQ(shownWord(std::string(1000, '\x01'), '\0').size(), 4 * Mox::kShownBytes + 3);
}

}  // namespace
