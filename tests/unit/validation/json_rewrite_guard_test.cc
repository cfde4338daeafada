// SPDX-License-Identifier: Apache-2.0
//
// Each verdict stands beside what json-glib itself writes, so that neither is taken on trust.
#include "validation/json_rewrite_guard.h"

#include <glib.h>

#include <regex>
#include <string>

#include "tests/unit/runtime/case_name.h"
#include "tests/unit/validation/json_text.h"

namespace quorvex::linux_service {
namespace {

struct RewriteCase {
  const char* name;
  // As the value of the one member of an object.
  std::string value;
  // What json-glib writes for it.
  std::string written;
  bool isKept = true;
};

std::string InObject(const std::string& value) {
  return "{\"a\":" + value + "}";
}

// What json-glib makes of the text, from which the frame of InObject is cut off.
std::string WrittenBack(const std::string& text) {
  const test::JsonText json(text);
  const GObjectPtr<JsonGenerator> generator(json_generator_new());
  json_generator_set_root(generator.get(), json.Root());
  gsize length = 0;
  char* written = json_generator_to_data(generator.get(), &length);
  std::string result(written, length);
  g_free(written);
  return result.substr(5, result.size() - 6);
}

class AJsonValue : public ::testing::TestWithParam<RewriteCase> {};

INSTANTIATE_TEST_SUITE_P(
    Integer, AJsonValue,
    ::testing::Values(
        RewriteCase{"Zero", "0", "0"}, RewriteCase{"Negative", "-17", "-17"},
        RewriteCase{"Largest", "9223372036854775807", "9223372036854775807"},
        RewriteCase{"TwoToThe63", "9223372036854775808", "-9223372036854775808", false},
        RewriteCase{"BelowTheSmallest", "-9223372036854775809", "9223372036854775807", false},
        RewriteCase{"TwoToThe64", "18446744073709551616", "-1", false},
        RewriteCase{"OfFortyDigits", "1234567890123456789012345678901234567890", "-1", false},
        RewriteCase{"Hexadecimal", "0x1F", "31"}, RewriteCase{"WithADollar", "$1e5", "485"},
        RewriteCase{"LargestHexadecimal", "0x7FFFFFFFFFFFFFFF", "9223372036854775807"},
        RewriteCase{"HexadecimalBeyond", "0xFFFFFFFFFFFFFFFF", "-1", false},
        RewriteCase{"HexadecimalBeyondWithAnE", "0xEEEEEEEEEEEEEEEEEE", "-1", false},
        RewriteCase{"Octal", "010", "8"}, RewriteCase{"Binary", "0b11", "3"},
        RewriteCase{"OctalBeyond", "01777777777777777777777", "-1", false}),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Fraction, AJsonValue,
    ::testing::Values(RewriteCase{"Half", "0.5", "0.5"}, RewriteCase{"WithoutZero", ".5", "0.5"},
                      RewriteCase{"WithoutDigits", "1.", "1.0"},
                      RewriteCase{"Tenth", "0.1", "0.10000000000000001"},
                      RewriteCase{"NegativeZero", "-0.0", "-0.0"},
                      RewriteCase{"Hundred", "1e2", "100.0"},
                      RewriteCase{"TooLarge", "1e400", "inf.0", false},
                      RewriteCase{"TooLargeNegative", "-1e400", "-inf.0", false},
                      RewriteCase{"TooSmall", "1e-400", "0.0"},
                      RewriteCase{"WrittenWrongly", "1e22", "1e+22.0", false}),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    String, AJsonValue,
    ::testing::Values(RewriteCase{"Plain", "\"text\"", "\"text\""},
                      RewriteCase{"SingleQuotes", "'it\"s'", R"("it\"s")"},
                      RewriteCase{"UnknownEscape", R"("\x41")", "\"x41\""},
                      RewriteCase{"OctalEscape", R"("\101")", "\"A\""},
                      RewriteCase{"OctalEscapeThatIsNoUtf8", R"("\377")", "\"\xff\"", false},
                      RewriteCase{"OctalEscapesOfOneCharacter", R"("\303\251")", "\"\u00e9\""},
                      RewriteCase{"Nul", R"("a\u0000b")", "\"a\"", false},
                      RewriteCase{"OctalNul", R"("a\0b")", "\"a\"", false},
                      RewriteCase{"NulInAName", R"({"b\u0000c": 1})", R"({"b":1})", false},
                      RewriteCase{"NulInAnArray", R"([1, "\u0000"])", R"([1,""])", false},
                      RewriteCase{"SurrogatePair", R"("\ud83d\ude00")", "\"\U0001F600\""},
                      RewriteCase{"HalfAPair", R"("\ud800x")", "\"\xed\xa0\x80\"", false}),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Structure, AJsonValue,
    ::testing::Values(RewriteCase{"Words", "[true, false, null]", "[true,false,null]"},
                      RewriteCase{"Comments", "/* 1e400 */ 1", "1"},
                      RewriteCase{"Duplicates", R"({"b": 1, "b": 2})", R"({"b":2})"},
                      RewriteCase{"NumbersInText", R"("1e400 18446744073709551616")",
                                  R"("1e400 18446744073709551616")"}),
    test::CaseName());

TEST_P(AJsonValue, ReachesTheEngineOnlyAsItIs) {
  const std::string text = InObject(GetParam().value);
  EXPECT_EQ(WrittenBack(text), GetParam().written);
  EXPECT_EQ(SurvivesRewriting(text), GetParam().isKept);
}

TEST(APowerOfTwo, SurvivesExactlyAsLongAsItIsWrittenBack) {
  // In decimal digits, lowest first, since the numbers outgrow the machine's.
  std::string digits = "1";
  constexpr int kLast = 140;
  for (int power = 0; power <= kLast; ++power) {
    const std::string text = InObject(std::string(digits.rbegin(), digits.rend()));
    EXPECT_EQ(SurvivesRewriting(text), InObject(WrittenBack(text)) == text) << text;
    int carry = 0;
    for (char& digit : digits) {
      const int doubled = 2 * (digit - '0') + carry;
      digit = static_cast<char>('0' + doubled % 10);
      carry = doubled / 10;
    }
    digits += carry == 0 ? "" : "1";
  }
}

TEST(AFraction, SurvivesExactlyWhenItIsWrittenAsJson) {
  const std::regex number(R"(-?(0|[1-9]\d*)(\.\d+)?([eE][+-]?\d+)?)");
  for (const char* mantissa : {"1", "-1", "1.5", "1.25", "9.999999999999999", "3.0"}) {
    for (int exponent = -345; exponent <= 345; ++exponent) {
      const std::string value = mantissa + std::string("e") + std::to_string(exponent);
      EXPECT_EQ(SurvivesRewriting(InObject(value)),
                std::regex_match(WrittenBack(InObject(value)), number))
          << value;
    }
  }
}

TEST(AControlCharacter, SurvivesExactlyWhenItIsWrittenAsAnEscape) {
  for (int character = 1; character < 0x80; ++character) {
    char* escape = g_strdup_printf("\"\\u%04x\"", static_cast<unsigned>(character));
    const std::string text = InObject(escape);
    g_free(escape);
    const std::string written = WrittenBack(text);
    const bool holdsControl =
        written.find_first_of(std::string("\x01\x02\x03\x04\x05\x06\x07\b\t\n\v\f\r\x0e\x0f\x10"
                                          "\x11\x12\x13\x14\x15\x16\x17\x18\x19\x1a\x1b\x1c\x1d"
                                          "\x1e\x1f")) != std::string::npos;
    EXPECT_EQ(SurvivesRewriting(text), !holdsControl) << text;
  }
}

}  // namespace
}  // namespace quorvex::linux_service
