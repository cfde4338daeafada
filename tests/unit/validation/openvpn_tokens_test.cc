// SPDX-License-Identifier: Apache-2.0
//
// As OpenVPN 2.6.14 reads lines: thousands of random ones of these kinds were given to both readers
// and came out alike, word by word.
#include "validation/openvpn_tokens.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace quorvex::linux_service {
namespace {

// A line and its words, each in brackets; or kRefused.
struct LineCase {
  const char* name;
  std::string line;
  std::string words;
};

constexpr char kRefused[] = "refused";

std::string WordsOf(const std::string& line, bool firstOfText = false) {
  OpenVpnWords words;
  if (!words.Split(line, firstOfText)) {
    return kRefused;
  }
  std::string shown;
  for (std::size_t index = 0; index < words.Count(); ++index) {
    shown.append("[").append(words[index]).append("]");
  }
  return shown;
}

void ExpectWords(const std::vector<LineCase>& lines) {
  for (const LineCase& line : lines) {
    EXPECT_EQ(WordsOf(line.line), line.words) << line.name;
  }
}

TEST(ADirectiveLine, IsSplitAtWhiteSpace) {
  ExpectWords({{"Empty", "", ""},
               {"Blank", " \t\v\f\r", ""},
               {"OneWord", "client", "[client]"},
               {"EveryBlank", "\ta\vb\fc\rd  e ", "[a][b][c][d][e]"},
               {"CarriageReturnAtTheEnd", "a b\r", "[a][b]"},
               {"BytesAboveAscii", "\xE4 \xA0 \x85", "[\xE4][\xA0][\x85]"}});
}

TEST(ADirectiveLine, EndsAtAComment) {
  ExpectWords({{"Whole", "# a", ""},
               {"WholeOfTheOtherKind", ";a b", ""},
               {"BehindBlanks", " \t#a", ""},
               {"BehindWords", "a b # c", "[a][b]"},
               {"BehindWordsOfTheOtherKind", "a b ;c", "[a][b]"},
               {"WithinAWord", "a#b c;d", "[a#b][c;d]"},
               {"BehindAQuote", "'a'#b", "[a]"},
               {"InQuotes", "\"#a\" ';b'", "[#a][;b]"},
               {"WithAnOpenQuote", "a # \"b", "[a]"}});
}

TEST(ADirectiveLine, KeepsQuotedWordsTogether) {
  ExpectWords({{"Double", "\"a b\" c", "[a b][c]"},
               {"Single", "'a b' c", "[a b][c]"},
               {"Empty", "\"\" ''", "[][]"},
               {"OneInTheOther", "\"a'b\" 'c\"d'", "[a'b][c\"d]"},
               {"BeginningAWord", "\"a\"b 'c'd", "[a][b][c][d]"},
               {"WithinAWord", "a\"b c'd", "[a\"b][c'd]"},
               {"DirectiveName", "\"log\" x", "[log][x]"},
               {"DirectiveNameInSingleQuotes", "'log' x", "[log][x]"},
               {"DoubleQuotesAreOpen", "a \"b c", kRefused},
               {"SingleQuotesAreOpen", "a 'b c", kRefused}});
}

TEST(ADirectiveLine, MayEscapeBlanksQuotesAndBackslashes) {
  ExpectWords({{"Blank", "a\\ b", "[a b]"},
               {"Quote", "\\\"a b\\\"", "[\"a][b\"]"},
               {"Backslash", "a\\\\b \\\\", "[a\\b][\\]"},
               {"InDoubleQuotes", "\"a\\\"b\\\\c\\ d\"", "[a\"b\\c d]"},
               {"NotInSingleQuotes", "'a\\b\\'", "[a\\b\\]"},
               {"Letter", "l\\og x", kRefused},
               {"LetterFirst", "\\log x", kRefused},
               {"LetterInDoubleQuotes", "\"l\\og\" x", kRefused},
               {"SingleQuote", "\\'a'", kRefused},
               {"SingleQuoteInAWord", "a\\'", kRefused}});
}

TEST(ADirectiveLine, LosesABackslashBetweenWords) {
  ExpectWords({{"BeforeABlank", "\\ a \\\tb", "[a][b]"},
               {"BeforeAComment", "a \\# b", "[a]"},
               {"BeforeTheOtherComment", "\\;a", ""},
               {"AtTheEnd", "a \\", "[a]"},
               {"Alone", "\\", ""}});
}

TEST(ADirectiveLine, ContinuesIntoItsLineFeedBehindABackslash) {
  ExpectWords({{"InAWord", "a b\\", "[a][b\n]"}, {"InQuotes", "a \"b\\", kRefused}});
}

TEST(ADirectiveLine, LosesItsDashes) {
  ExpectWords({{"Two", "--log x", "[log][x]"},
               {"Quoted", "\"--log\" --x", "[log][--x]"},
               {"Four", "----log", "[--log]"},
               {"One", "-log", "[-log]"},
               {"Alone", "-- log", "[--][log]"},
               {"BeforeATag", "--<ca>", "[<ca>]"}});
}

TEST(ADirectiveLine, HasSixteenWordsAtMost) {
  const std::string sixteen = "1 2 3 4 5 6 7 8 9 a b c d e f g";
  const std::string words = "[1][2][3][4][5][6][7][8][9][a][b][c][d][e][f][g]";
  ExpectWords({{"Sixteen", sixteen, words},
               {"More", sixteen + " h i", words},
               {"WithAnOpenQuoteBehind", sixteen + " \"h", words},
               {"WithAStrayBackslashBehind", sixteen + " \\h", words},
               {"TheLastOneOpen", sixteen.substr(0, sixteen.size() - 1) + "\"g", kRefused}});
}

TEST(ADirectiveLine, Has254BytesAtMost) {
  const std::string word(253, 'x');
  EXPECT_EQ(WordsOf(word + "y"), "[" + word + "y]");
  EXPECT_EQ(WordsOf(word + "yz"), kRefused);
  EXPECT_EQ(WordsOf("#" + std::string(254, ' ')), kRefused);
  EXPECT_EQ(WordsOf(std::string(100000, ' ')), kRefused);
}

TEST(ADirectiveLine, LosesAByteOrderMarkOnlyAtTheBeginningOfTheText) {
  EXPECT_EQ(WordsOf("\xEF\xBB\xBFlog x", true), "[log][x]");
  EXPECT_EQ(WordsOf("\xEF\xBB\xBF# log x", true), "");
  EXPECT_EQ(WordsOf("\xEF\xBB\xBF--log x", true), "[log][x]");
  EXPECT_EQ(WordsOf("\xEF\xBB\xBF", true), "");
  EXPECT_EQ(WordsOf("\xEF\xBBlog x", true), "[\xEF\xBBlog][x]");
  EXPECT_EQ(WordsOf(" \xEF\xBB\xBFlog x", true), "[\xEF\xBB\xBFlog][x]");
  EXPECT_EQ(WordsOf("\xEF\xBB\xBFlog x", false), "[\xEF\xBB\xBFlog][x]");
  // It counts as a part of the line.
  EXPECT_EQ(WordsOf("\xEF\xBB\xBF" + std::string(252, 'x'), true), kRefused);
}

TEST(ADirectiveLine, LeavesNothingOfTheOneBefore) {
  OpenVpnWords words;
  ASSERT_TRUE(words.Split("a longer line", false));
  ASSERT_TRUE(words.Split("b", false));
  EXPECT_EQ(words.Count(), 1U);
  EXPECT_EQ(words[0], "b");
  ASSERT_TRUE(words.Split("", false));
  EXPECT_EQ(words.Count(), 0U);
}

TEST(AnInlineBlock, EndsAtEveryLineThatBeginsWithItsTag) {
  for (const char* line :
       {"</ca>", " \t\v\f\r</ca>", "</ca>\r", "</ca> x", "</ca>x", "</ca></ca>"}) {
    EXPECT_TRUE(ClosesOpenVpnBlock(line, "</ca>")) << line;
  }
  for (const char* line : {"", "</CA>", "x</ca>", "</ca", "</c a>", "</ ca>", "#</ca>", "\"</ca>\"",
                           "--</ca>", "\\ </ca>", "</cac>"}) {
    EXPECT_FALSE(ClosesOpenVpnBlock(line, "</ca>")) << line;
  }
}

TEST(AnInlineBlock, EndsWhereAPieceOf255BytesBeginsWithItsTag) {
  for (const std::size_t filling : {255U, 510U, 255U * 100}) {
    EXPECT_TRUE(ClosesOpenVpnBlock(std::string(filling, 'x') + "</ca>", "</ca>")) << filling;
    EXPECT_TRUE(ClosesOpenVpnBlock(std::string(filling, 'x') + " \t</ca> x", "</ca>")) << filling;
    EXPECT_FALSE(ClosesOpenVpnBlock(std::string(filling - 1, 'x') + "</ca>", "</ca>")) << filling;
    EXPECT_FALSE(ClosesOpenVpnBlock(std::string(filling + 1, 'x') + "</ca>", "</ca>")) << filling;
  }
}

TEST(AnInlineBlock, GoesOnWhereATagIsCutInTwo) {
  EXPECT_TRUE(ClosesOpenVpnBlock(std::string(250, ' ') + "</ca>", "</ca>"));
  EXPECT_FALSE(ClosesOpenVpnBlock(std::string(251, ' ') + "</ca>", "</ca>"));
  EXPECT_FALSE(ClosesOpenVpnBlock(std::string(254, ' ') + "</ca>", "</ca>"));
  EXPECT_TRUE(ClosesOpenVpnBlock(std::string(255, ' ') + "</ca>", "</ca>"));
}

}  // namespace
}  // namespace quorvex::linux_service
