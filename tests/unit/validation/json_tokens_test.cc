// SPDX-License-Identifier: Apache-2.0
//
// Where one token ends and the next begins, which must be where json-glib sees it.
#include "validation/json_tokens.h"

#include <gtest/gtest.h>

#include <vector>

namespace quorvex::linux_service {
namespace {

std::string Written(JsonTokenKind token, std::string_view text) {
  switch (token) {
    case JsonTokenKind::kBroken:
      return "!";
    case JsonTokenKind::kString:
      return "<" + std::string(text) + ">";
    case JsonTokenKind::kOpenObject:
      return "{";
    case JsonTokenKind::kCloseObject:
      return "}";
    case JsonTokenKind::kOpenArray:
      return "[";
    case JsonTokenKind::kCloseArray:
      return "]";
    case JsonTokenKind::kColon:
      return ":";
    case JsonTokenKind::kComma:
      return ",";
    case JsonTokenKind::kAssign:
      return "=";
    default:
      return std::string(text);
  }
}

// All tokens up to the end or to the first broken one, with blanks between them.
std::string TokensOf(const std::string& json) {
  JsonTokenReader reader(json);
  std::string tokens;
  for (auto token = reader.Next(); token != JsonTokenKind::kEnd; token = reader.Next()) {
    tokens += (tokens.empty() ? "" : " ") + Written(token, reader.Text());
    if (token == JsonTokenKind::kBroken) {
      break;
    }
  }
  return tokens;
}

struct TokenCase {
  const char* name;
  std::string json;
  // Strings in angle brackets, "!" for a broken token.
  std::string tokens;
};

void ExpectTokens(const std::vector<TokenCase>& cases) {
  for (const TokenCase& expected : cases) {
    EXPECT_EQ(TokensOf(expected.json), expected.tokens) << expected.name << ": " << expected.json;
  }
}

TEST(AJsonText, IsCutIntoTokens) {
  ExpectTokens({{"Nothing", "", ""},
                {"OnlyBlanks", " \t\r\n ", ""},
                {"EverySymbol", "{}[]:,=", "{ } [ ] : , ="},
                {"Words", "true null,1.5e+3", "true null , 1.5e+3"},
                {"ANegativeNumber", "[-1,- 2]", "[ 1 , 2 ]"},
                {"AWordBesideAString", R"(a"b"c)", "a <b> c"},
                {"AWordBesideAComment", "a/b/c", "a c"},
                {"HighBytes", "\xC3\xA9", "\xC3\xA9"},
                {"AnObject", R"({"a": [1, "b"]})", "{ <a> : [ 1 , <b> ] }"}});
}

TEST(AComment, EndsAtTheNextSlash) {
  ExpectTokens({{"OfABlock", "1 /* {[ */ 2", "1 2"},
                {"ThatEndsAtTheNextSlash", "1 /* a / 2", "1 2"},
                {"OfTwoSlashes", "// {", "{"},
                {"OverLines", "1 / \n\" / 2", "1 2"},
                {"BehindAnother", "/a//b/1", "1"},
                {"InAString", R"("/" 1 "/")", "</> 1 </>"},
                {"WithoutEnd", "1 /* 2", "1 !"},
                {"OfOneSlash", "/", "!"}});
}

TEST(AString, EndsAtItsOwnQuote) {
  ExpectTokens({{"Empty", R"("")", "<>"},
                {"InSingleQuotes", "'a'", "<a>"},
                {"WithTheOtherQuote", R"("'" '"')", "<'> <\">"},
                {"WithABackslashInSingleQuotes", R"('\' 1)", "<\\> 1"},
                {"WithBrackets", R"("{[" "]}")", "<{[> <]}>"},
                {"OverLines", "\"a\nb\"", "<a\nb>"},
                {"WithoutEnd", R"("a)", "!"},
                {"InSingleQuotesWithoutEnd", "'a", "!"},
                {"WithAQuoteOfTheOtherKind", R"("a')", "!"},
                {"OfOneQuote", "\"", "!"}});
}

TEST(AnEscape, StandsForItsByte) {
  ExpectTokens({{"Quote", R"("\"" 1)", "<\"> 1"},
                {"Backslash", R"("\\" 1)", "<\\> 1"},
                {"Slash", R"("\/")", "</>"},
                {"Letters", R"("\b\f\n\r\t")", "<\b\f\n\r\t>"},
                {"UnknownLetters", R"("\q\x\v")", "<qxv>"},
                {"OctalDigits", R"("\101\60\7\1018")",
                 "<A0\a"
                 "A8>"},
                {"OctalNul", R"("a\0b")", "<a>"},
                {"AtTheEnd", "\"\\", "!"},
                {"AndNoQuote", R"("\")", "!"}});
}

TEST(AUnicodeEscape, StandsForItsCharacter) {
  ExpectTokens({{"OfALetter", R"("\u0061\u00E9\u20ac")", "<a\u00e9\u20ac>"},
                {"AndMoreDigits", R"("\u00612")", "<a2>"},
                {"OfNul", R"("a\u0000b" 1)", "<a> 1"},
                {"WithoutADigit", R"("\u\ug")", "<g>"},
                {"OfFewDigits", R"("\u20x")", "<\u2000>"},
                {"ThatSwallowsTheQuote", R"("\u20")", "!"},
                {"ThatSwallowsAQuoteInside", R"("\u20" {")", "<\u2000 {>"},
                {"AtTheEnd", R"("\u)", "!"}});
}

TEST(ASurrogate, TakesWhatStandsBehindIt) {
  ExpectTokens({{"Pair", R"("\ud83d\ude00")", "<\U0001F600>"},
                {"PairInCapitals", R"("\uD83D\uDE00")", "<\U0001F600>"},
                {"WithoutSecond", R"("\ud83dxy")", "<\xED\xA0\xBDy>"},
                {"BeforeAnotherEscape", R"("\ud83d\ny")", "<\xED\xA0\xBDy>"},
                {"ThatSwallowsTheQuote", R"("\ud83d" {")", "<\xED\xA0\xBD {>"},
                {"SecondAlone", R"("\ude00xy")", "<\xED\xB8\x80y>"},
                {"SecondFirst", R"("\ude00\ud83d")", "!"},
                {"TwiceTheFirst", R"("\ud83d\ud83d")", "!"},
                {"TwiceTheSecond", R"("\ude00\ude00")", "!"},
                {"BeforeALetter", R"("\ud83d\u0061")", "!"},
                {"BeforeAnEscapeWithoutDigit", R"("\ud83d\u")", "!"}});
}

TEST(AJsonText, StaysAtItsEnd) {
  JsonTokenReader reader("1");
  EXPECT_EQ(reader.Next(), JsonTokenKind::kWord);
  EXPECT_EQ(reader.Next(), JsonTokenKind::kEnd);
  EXPECT_EQ(reader.Next(), JsonTokenKind::kEnd);
}

}  // namespace
}  // namespace quorvex::linux_service
