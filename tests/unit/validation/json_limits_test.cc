// SPDX-License-Identifier: Apache-2.0
//
// What may be parsed at all: the JSON engines' first rules.
#include "tests/unit/runtime/case_name.h"
#include "tests/unit/validation/json_text.h"
#include "tests/unit/validation/profile_case.h"
#include "validation/json_guards.h"

namespace quorvex::linux_service {
namespace {

using test::JsonText;
using test::ProfileCase;
using test::Times;

constexpr char kMalformed[] = "The JSON VPN configuration is malformed.";
constexpr char kNotAnObject[] = "The JSON VPN configuration must be an object.";
constexpr char kTooComplex[] = "The JSON VPN configuration exceeds complexity limits.";

std::string ParseRefusal(const std::string& text) {
  GObjectPtr<JsonParser> parser;
  JsonObject* root = nullptr;
  const ValidationResult verdict = ParseJsonObject(text, &parser, &root);
  if (verdict.valid) {
    EXPECT_EQ(json_node_get_object(json_parser_get_root(parser.get())), root);
  }
  return test::SentenceOf(verdict);
}

class AJsonText : public ::testing::TestWithParam<ProfileCase> {};

INSTANTIATE_TEST_SUITE_P(
    Malformed, AJsonText,
    ::testing::Values(ProfileCase{"AnOpenBrace", "{", kMalformed},
                      ProfileCase{"AnOpenBracket", "[", kMalformed},
                      ProfileCase{"AClosingBrace", "}", kMalformed},
                      ProfileCase{"AWord", "nonsense", kMalformed},
                      ProfileCase{"ANameWithoutValue", R"({"a"})", kMalformed},
                      ProfileCase{"ATrailingComma", R"({"a": 1,})", kMalformed},
                      ProfileCase{"AMissingComma", R"({"a": 1 "b": 2})", kMalformed},
                      ProfileCase{"AnOpenString", R"({"a": "b})", kMalformed},
                      ProfileCase{"AnOpenComment", R"({} /* a)", kMalformed},
                      ProfileCase{"ACrossing", R"({"a": [1})", kMalformed},
                      ProfileCase{"ABraceTooMany", R"({}})", kMalformed},
                      ProfileCase{"NoUtf8", "{\"a\": \"\xff\"}", kMalformed},
                      ProfileCase{"AnArrayCutOff", "[[]", kMalformed}),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(OfAnotherKind, AJsonText,
                         ::testing::Values(ProfileCase{"AnArray", "[]", kNotAnObject},
                                           ProfileCase{"AnArrayOfObjects", "[{}]", kNotAnObject},
                                           ProfileCase{"AString", R"("{}")", kNotAnObject},
                                           ProfileCase{"ANumber", "17", kNotAnObject},
                                           ProfileCase{"ABoolean", "true", kNotAnObject},
                                           ProfileCase{"Null", "null", kNotAnObject},
                                           ProfileCase{"Blanks", " \n\t ", kNotAnObject},
                                           ProfileCase{"AComment", "/* {} */", kNotAnObject}),
                         test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Plain, AJsonText,
    ::testing::Values(ProfileCase{"AnEmptyObject", "{}"}, ProfileCase{"Blanks", " \n{ } \n"},
                      ProfileCase{"AByteOrderMark", "\xef\xbb\xbf{}"},
                      ProfileCase{"BlockComments", R"(/* [ */ {"a" /* { */: 1} /* ] */)"},
                      ProfileCase{"EveryKind", R"({"a": [1, -1.5e3, "", true, null, {}, []]})"},
                      ProfileCase{"Escapes", R"({"\"\\\/\b\f\n\r\t": "\u00e9\ud83d\ude00"})"}),
    test::CaseName());

TEST_P(AJsonText, HasItsVerdict) {
  EXPECT_EQ(ParseRefusal(GetParam().text), GetParam().sentence);
}

TEST(AJsonText, IsJudgedTheSameForBothJsonEngines) {
  for (const char* protocol : {"vless", "xray"}) {
    SCOPED_TRACE(protocol);
    EXPECT_EQ(test::Refusal(protocol, "{"), kMalformed);
    EXPECT_EQ(test::Refusal(protocol, "[]"), kNotAnObject);
    EXPECT_EQ(test::Refusal(protocol, "{\"a\":" + Times(65, "[") + Times(65, "]") + "}"),
              kTooComplex);
  }
}

// An object with so many containers in each other below it, `core` in the innermost.
std::string NestedArrays(std::size_t levels, const std::string& core) {
  return R"({"a": )" + Times(levels, "[") + core + Times(levels, "]") + "}";
}

std::string NestedObjects(std::size_t levels, const std::string& core) {
  return Times(levels, R"({"a": )") + "{" + core + "}" + Times(levels, "}");
}

TEST(ANestedJsonText, PassesWith64LevelsBelowTheRoot) {
  EXPECT_EQ(ParseRefusal(NestedArrays(64, "")), "");
  EXPECT_EQ(ParseRefusal(NestedArrays(65, "")), kTooComplex);
  EXPECT_EQ(ParseRefusal(NestedObjects(64, "")), "");
  EXPECT_EQ(ParseRefusal(NestedObjects(65, "")), kTooComplex);
}

TEST(ANestedJsonText, MayHoldNoValueBelowTheDeepestLevel) {
  EXPECT_EQ(ParseRefusal(NestedArrays(63, "1")), "");
  for (const char* core : {"1", "null", "\"\"", "true", "[]", "{}"}) {
    SCOPED_TRACE(core);
    EXPECT_EQ(ParseRefusal(NestedArrays(64, core)), kTooComplex);
  }
  EXPECT_EQ(ParseRefusal(NestedObjects(63, R"("a": 1)")), "");
  EXPECT_EQ(ParseRefusal(NestedObjects(64, R"("a": 1)")), kTooComplex);
}

TEST(ANestedJsonText, IsRefusedForItsDeepestBranch) {
  const std::string deep = Times(64, "[") + Times(64, "]");
  EXPECT_EQ(ParseRefusal(R"({"a": [], "b": [], "c": )" + deep + "}"), "");
  EXPECT_EQ(ParseRefusal(R"({"a": [], "b": [)" + deep + R"(], "c": []})"), kTooComplex);
  EXPECT_EQ(ParseRefusal(R"({"a": [0, )" + deep + "]}"), kTooComplex);
}

TEST(ANestedJsonText, IsMalformedOrNoObjectBeforeItIsTooDeep) {
  EXPECT_EQ(ParseRefusal(Times(100, "[")), kMalformed);
  EXPECT_EQ(ParseRefusal(Times(100, "[") + Times(100, "]")), kNotAnObject);
  EXPECT_EQ(ParseRefusal(NestedArrays(100, "1,")), kMalformed);
}

// An object with an array of so many elements: two nodes more than elements.
std::string FlatArray(std::size_t elements, const std::string& element) {
  return R"({"a": [)" + Times(elements - 1, element + ",") + element + "]}";
}

class AFlatJsonText : public ::testing::TestWithParam<ProfileCase> {};

INSTANTIATE_TEST_SUITE_P(
    Of, AFlatJsonText,
    ::testing::Values(ProfileCase{"Numbers", "1"}, ProfileCase{"Strings", "\"\""},
                      ProfileCase{"Booleans", "true"}, ProfileCase{"Nulls", "null"},
                      ProfileCase{"Arrays", "[]"}, ProfileCase{"Objects", "{}"}),
    test::CaseName());

TEST_P(AFlatJsonText, MayHaveAHundredThousandNodes) {
  EXPECT_EQ(ParseRefusal(FlatArray(99998, GetParam().text)), "");
  EXPECT_EQ(ParseRefusal(FlatArray(99999, GetParam().text)), kTooComplex);
}

TEST_P(AFlatJsonText, IsCountedAcrossItsBranches) {
  const auto branches = [](std::size_t first, std::size_t second) {
    const std::string element = GetParam().text;
    return R"({"a": [)" + Times(first - 1, element + ",") + element + R"(], "b": [)" +
           Times(second - 1, element + ",") + element + "]}";
  };
  EXPECT_EQ(ParseRefusal(branches(50000, 49997)), "");
  EXPECT_EQ(ParseRefusal(branches(50000, 49998)), kTooComplex);
  EXPECT_EQ(ParseRefusal(branches(49998, 50000)), kTooComplex);
}

TEST(AFlatJsonText, CountsMembersLikeElements) {
  const auto members = [](std::size_t count) {
    std::string text = "{";
    for (std::size_t index = 1; index < count; ++index) {
      text += "\"" + std::to_string(index) + "\": 1,";
    }
    return text + "\"last\": 1}";
  };
  EXPECT_EQ(ParseRefusal(members(99999)), "");
  EXPECT_EQ(ParseRefusal(members(100000)), kTooComplex);
}

TEST(AFlatJsonText, IsRefusedWithAHundredThousandNumbersInItsArray) {
  EXPECT_EQ(ParseRefusal(FlatArray(100000, "1")), kTooComplex);
}

// Calls JsonWithinLimits on a parsed text.
bool Within(const std::string& text, std::uint64_t depth, std::uint64_t* count) {
  return JsonWithinLimits(JsonText(text).Root(), depth, count);
}

TEST(TheWalk, CountsEveryNodeOnTheWay) {
  std::uint64_t count = 0;
  EXPECT_TRUE(
      Within(R"({"a": [1, "b", null, true, {}, [], {"c": 1.5}], "d": {"e": []}})", 0, &count));
  EXPECT_EQ(count, 12U);
  EXPECT_TRUE(Within("[]", 0, &count));
  EXPECT_EQ(count, 13U);
}

TEST(TheWalk, StartsFromTheGivenDepth) {
  std::uint64_t count = 0;
  EXPECT_TRUE(Within("[]", 64, &count));
  EXPECT_FALSE(Within("[]", 65, &count));
  EXPECT_TRUE(Within("[1]", 63, &count));
  EXPECT_FALSE(Within("[1]", 64, &count));
}

TEST(TheWalk, StartsFromTheGivenCount) {
  std::uint64_t count = 99999;
  EXPECT_TRUE(Within("[]", 0, &count));
  EXPECT_EQ(count, 100000U);
  EXPECT_FALSE(Within("[]", 0, &count));
  count = 99999;
  EXPECT_FALSE(Within("[1]", 0, &count));
}

TEST(TheWalk, FailsForNoNode) {
  std::uint64_t count = 0;
  EXPECT_FALSE(JsonWithinLimits(nullptr, 0, &count));
}

}  // namespace
}  // namespace quorvex::linux_service
