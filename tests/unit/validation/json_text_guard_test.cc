// SPDX-License-Identifier: Apache-2.0
//
// What is kept from json-glib, and in whose words it is refused.
#include "tests/unit/validation/json_verdict.h"
#include "tests/unit/validation/profile_case.h"

namespace quorvex::linux_service {
namespace {

using test::Times;

constexpr auto kMalformed = JsonTextVerdict::kMalformed;
constexpr auto kNotAnObject = JsonTextVerdict::kNotAnObject;
constexpr auto kTooComplex = JsonTextVerdict::kTooComplex;

constexpr std::uint64_t kAny = 1000000;

struct VerdictCase {
  const char* name;
  std::string text;
  JsonTextVerdict verdict = JsonTextVerdict::kParse;
};

void ExpectVerdictsWithin(const JsonTextLimits& limits, const std::vector<VerdictCase>& cases) {
  for (const VerdictCase& expected : cases) {
    EXPECT_EQ(JudgeJsonText(expected.text, limits), expected.verdict)
        << expected.name << ": " << expected.text;
  }
}

struct CountedText {
  const char* name;
  std::string text;
  std::uint64_t nodes;
};

// Holds each text to its exact count: it passes with that, and not with one less.
void ExpectNodes(const std::vector<CountedText>& cases) {
  for (const auto& [name, text, nodes] : cases) {
    SCOPED_TRACE(name + (": " + text));
    EXPECT_EQ(JudgeJsonText(text, {kAny, nodes, kAny}), JsonTextVerdict::kParse);
    EXPECT_EQ(JudgeJsonText(text, {kAny, nodes - 1, kAny}), kTooComplex);
  }
}

struct SteppedText {
  const char* name;
  std::string text;
  std::uint64_t steps;
};

// Likewise for the steps past other members.
void ExpectSteps(const std::vector<SteppedText>& cases) {
  for (const auto& [name, text, steps] : cases) {
    SCOPED_TRACE(name + (": " + text));
    EXPECT_EQ(JudgeJsonText(text, {kAny, kAny, steps}), JsonTextVerdict::kParse);
    if (steps > 0) {
      EXPECT_EQ(JudgeJsonText(text, {kAny, kAny, steps - 1}), kTooComplex);
    }
  }
}

TEST(TheGuard, CountsEveryNode) {
  ExpectNodes({{"Empty", "{}", 1},
               {"OneMember", R"({"a": 1})", 2},
               {"AllKinds", R"({"a": [1, "b", null, true, {}, []]})", 8},
               {"WithAByteOrderMark", "\xEF\xBB\xBF{}", 1},
               {"NegativeNumbers", R"({"a": [-1, - 2]})", 4},
               {"CommasInStrings", R"({"a,b": ",,[{"})", 2},
               {"CommasInComments", "{/ ,,[[ /}", 1}});
}

TEST(TheGuard, CountsOnlyWhatADuplicateLeaves) {
  ExpectNodes({{"OfValues", R"({"a": 1, "a": 2})", 2},
               {"OfAnArray", R"({"a": [1, 2, 3], "a": 1})", 2},
               {"ByAnArray", R"({"a": 1, "a": [1, 2, 3]})", 5},
               {"OfADuplicate", R"({"a": [1], "a": [1, 2], "a": [1]})", 3},
               {"ApartFromEachOther", R"({"a": [1], "b": 1, "a": 1})", 3},
               {"OfAnObject", R"({"a": {"b": 1, "c": 2}, "a": {}})", 2},
               {"InAnObjectInside", R"({"a": [{"b": [1], "b": 1}]})", 4},
               {"InAnObjectOutside", R"({"a": {"a": 1}})", 3},
               {"InNeighbours", R"({"b": [{"a": 1}, {"a": 1}]})", 6}});
}

TEST(TheGuard, KnowsADuplicateHoweverItIsWritten) {
  ExpectNodes({{"InOtherQuotes", R"({"a": 1, 'a': 2})", 2},
               {"InUnicode", R"({"a": 1, "\u0061": 2})", 2},
               {"InOctal", R"({"a": 1, "\141": 2})", 2},
               {"WithAnIdleEscape", R"({"a": 1, "\a": 2})", 2},
               {"WithATail", R"({"a": 1, "a\u0000b": 2})", 2},
               {"InAnotherCase", R"({"a": 1, "A": 2})", 3},
               {"WithABlank", R"({"a": 1, "a ": 2})", 3},
               {"WithACollision", R"({"Ez": 1, "FY": 2})", 3}});
}

TEST(TheGuard, CountsAllRoots) {
  ExpectNodes({{"ThatAreEmpty", "{}{}{}", 3},
               {"OfAllKinds", R"({"a": 1} [1] {})", 5},
               {"OfOneName", R"({"a": 1} {"a": 1})", 4},
               {"BehindAssignments", "var a = {} var b = {}", 2}});
}

TEST(TheGuard, LetsATextBeAsDeepAsTheLimit) {
  ExpectVerdictsWithin({1, kAny, kAny}, {{"OneObject", "{}"},
                                         {"AgainAndAgain", "{}{}{}{}"},
                                         {"BracketsInStrings", R"({"[[[": "{{{", '[[[': '{{{'})"},
                                         {"BracketsInComments", "/ [[[ / { /* [[[ */ }"},
                                         {"BracketsBehindASwallowedQuote", R"({"a": "\u20" [[["})"},
                                         {"OneAssignment", "var a = {}"}});
  ExpectVerdictsWithin({2, kAny, kAny}, {{"Neighbours", R"({"a": [], "b": [], "c": {}})"},
                                         {"AssignmentsInEachOther", "var a = var b = {}"}});
}

TEST(TheGuard, LetsNoTextBeDeeper) {
  ExpectVerdictsWithin({1, kAny, kAny},
                       {{"AnArrayInside", R"({"a": []})", kTooComplex},
                        {"AnObjectInside", R"({"a": {}})", kTooComplex},
                        {"InTheLastMember", R"({"a": 1, "b": 2, "c": []})", kTooComplex},
                        {"InADroppedMember", R"({"a": [], "a": 1})", kTooComplex},
                        {"InADroppedRoot", "{} [[]]", kTooComplex},
                        {"ByAssignments", "var a = var b = {}", kTooComplex}});
  ExpectVerdictsWithin({3, kAny, kAny}, {{"ThreeInside", R"({"a": [[{}]]})", kTooComplex}});
}

TEST(TheGuard, CallsATextMalformedBeforeItIsTooDeep) {
  ExpectVerdictsWithin({1, kAny, kAny}, {{"Open", "[[", kMalformed},
                                         {"Crossing", "{'a':[[}]]", kMalformed},
                                         {"WithABracketTooMany", "[[]]]", kMalformed},
                                         {"WithoutAColon", "{'a'[]}", kMalformed},
                                         {"WithTwoColons", "{'a'::[]}", kMalformed},
                                         {"WithoutAComma", "[[][]]", kMalformed},
                                         {"WithTwoCommas", "[[],,[]]", kMalformed},
                                         {"WithALastComma", "[[],]", kMalformed},
                                         {"WithALastCommaInAnObject", "{'a':[],}", kMalformed},
                                         {"WithAFirstComma", "[,[]]", kMalformed},
                                         {"WithAMemberInAnArray", "['a':[]]", kMalformed},
                                         {"WithAnElementInAnObject", "{[]}", kMalformed},
                                         {"WithAWordAsName", "{a:[]}", kMalformed},
                                         {"WithANameAlone", "{'a':[],'b'}", kMalformed},
                                         {"WithANameWithoutValue", "{'a':[],'b':}", kMalformed},
                                         {"WithACommaOutside", "[[]],{}", kMalformed},
                                         {"WithAColonOutside", "[[]]:{}", kMalformed},
                                         {"WithAnOpenString", "[[]] \"", kMalformed},
                                         {"WithBytesThatAreNoUtf8", "[[\"\xFF\"]]", kMalformed}});
}

TEST(TheGuard, CallsAnAssignmentMalformedWhenSomethingIsMissing) {
  ExpectVerdictsWithin({1, kAny, kAny}, {{"TheVariable", "[[]] = 1", kMalformed},
                                         {"TheName", "var = [[]]", kMalformed},
                                         {"TheSign", "var a [[]]", kMalformed},
                                         {"TheSignInAChain", "var a var b = [[]]", kMalformed},
                                         {"TheRest", "[[]] var", kMalformed},
                                         {"TheOutside", "[[], var a = 1]", kMalformed}});
}

TEST(TheGuard, MissesTheObjectBeforeATextIsTooDeep) {
  ExpectVerdictsWithin({1, kAny, kAny}, {{"AnArray", "[[]]", kNotAnObject},
                                         {"AnArrayFirst", "[[]] {}", kNotAnObject},
                                         {"AStringFirst", "'a' [[]] {}", kNotAnObject},
                                         {"AWordFirst", "1 {'a':[]}", kNotAnObject},
                                         {"AnAssignedArray", "var a = [[]]", kNotAnObject},
                                         {"AnAssignedObject", "var a = {'a':[]}", kTooComplex},
                                         {"AnObjectFirst", "{'a':[]} []", kTooComplex}});
}

TEST(TheGuard, ChoosesAmongVerdictsForTooManyNodesToo) {
  ExpectVerdictsWithin({kAny, 2, kAny}, {{"TooMany", "{'a':[1]}", kTooComplex},
                                         {"AnArray", "[1,2]", kNotAnObject},
                                         {"AnArrayFirst", "[1]{}", kNotAnObject},
                                         {"Malformed", "{'a':[1,2,]}", kMalformed},
                                         {"NotTooManyInTheEnd", "{'a':[1,2,3,4],'a':1}"}});
}

// A step for each member before the first of the duplicate's name.
TEST(TheGuard, CountsTheStepsToADuplicate) {
  ExpectSteps({{"ThereIsNone", R"({"a": 1, "b": 1, "c": 1})", 0},
               {"OfTheFirstMember", R"({"a": 1, "a": 1, "a": 1})", 0},
               {"OfTheSecondMember", R"({"a": 1, "b": 1, "b": 1})", 1},
               {"OfTheThirdMember", R"({"a": 1, "b": 1, "c": 1, "d": 1, "c": 1})", 2},
               {"AgainAndAgain", R"({"a": 1, "b": 1, "b": 1, "b": 1, "b": 1})", 3},
               {"OfSeveralMembers", R"({"a": 1, "b": 1, "c": 1, "c": 1, "b": 1})", 3},
               {"InAnotherObject", R"({"a": {"b": 1, "c": 1}, "c": {"b": 1}})", 0},
               {"AddedUpOverObjects",
                R"({"a": {"b": 1, "c": 1, "c": 1}, "d": {"b": 1, "c": 1, "c": 1}})", 2}});
}

// "Ez" and "FY" have one hash.
TEST(TheGuard, CountsTheStepsPastMembersOfTheSameHash) {
  ExpectSteps({{"One", R"({"Ez": 1, "FY": 1})", 1},
               {"Three", R"({"EzEz": 1, "EzFY": 1, "FYEz": 1})", 3},
               {"WithOthersBetween", R"({"Ez": 1, "a": 1, "FY": 1})", 1},
               {"WithADuplicateOfTheFirst", R"({"Ez": 1, "FY": 1, "Ez": 1})", 1},
               {"WithADuplicateOfTheSecond", R"({"Ez": 1, "FY": 1, "FY": 1})", 3},
               {"InAnotherObject", R"({"Ez": {"FY": 1}})", 0}});
}

// Beyond some members the guard looks them up by their hashes.
TEST(TheGuard, CountsTheSameInALargeObject) {
  std::string fillers;
  for (int number = 0; number < 40; ++number) {
    fillers += "\"n" + std::to_string(number) + "\": 1, ";
  }
  ExpectNodes({{"OfTheFirstMember", "{" + fillers + R"("n0": [1]})", 42},
               {"OfTheLastMember", "{" + fillers + R"("a": [1, 2], "\u0061": [1]})", 43},
               {"InAnObjectInside", "{" + fillers + R"("a": {"n0": 1}, "b": 1, "b": 2})", 44}});
  ExpectSteps(
      {{"None", "{" + fillers + R"("a": {"n1": 1}})", 0},
       {"ToADuplicate", "{" + fillers + R"("n39": 1, "n7": 1})", 46},
       {"PastTheSameHash", "{" + fillers + R"("Ez": 1, "FY": 1})", 1},
       {"PastTheSameHashToADuplicate", "{" + fillers + R"("Ez": 1, "FY": 1, "FY": 1})", 43}});
}

TEST(TheGuard, CallsATextMalformedBeforeItTakesTooManySteps) {
  ExpectVerdictsWithin({kAny, kAny, 0}, {{"Sound", "{'a':1,'b':1,'b':1}", kTooComplex},
                                         {"Malformed", "{'a':1,'b':1,'b':1,}", kMalformed},
                                         {"InAnArray", "[{'a':1,'b':1,'b':1}]", kNotAnObject}});
}

JsonTextSurvey Surveyed(const std::string& text, const JsonTextLimits& limits = {}) {
  return SurveyJsonText(text, limits, [](JsonTokenKind, const JsonTokenReader&) {});
}

TEST(ASurvey, TellsHowDeepATreeIsAndHowLarge) {
  struct Case {
    const char* name;
    std::string text;
    std::uint64_t nodes;
    std::uint64_t depth;
  };
  const std::vector<Case> cases = {{"Empty", "{}", 1, 1},
                                   {"AMember", R"({"a": 1})", 2, 1},
                                   {"Nested", R"({"a": [[1], 2]})", 5, 3},
                                   {"ADroppedMember", R"({"a": [[1]], "a": 1})", 2, 3},
                                   {"ADroppedRoot", "{} [[]]", 3, 2}};
  for (const Case& expected : cases) {
    SCOPED_TRACE(expected.name);
    const JsonTextSurvey survey = Surveyed(expected.text);
    EXPECT_TRUE(survey.isComplete);
    EXPECT_EQ(survey.nodes, expected.nodes);
    EXPECT_EQ(survey.depth, expected.depth);
  }
}

TEST(ASurvey, TellsNothingOfATextThatItCouldNotRead) {
  const std::vector<VerdictCase> cases = {{"LeftToJsonGlib", R"({"a":})"},
                                          {"WithoutEnd", R"({"a": ")"},
                                          {"AfterAWordOutOfPlace", R"(var {"a": 1})"}};
  for (const VerdictCase& expected : cases) {
    SCOPED_TRACE(expected.name);
    EXPECT_EQ(Surveyed(expected.text).verdict, expected.verdict);
    EXPECT_FALSE(Surveyed(expected.text).isComplete);
  }
  EXPECT_FALSE(Surveyed("{'a':[[]]}", {1, kAny, kAny}).isComplete);
}

TEST(ASurvey, ShowsEveryStringAndWord) {
  std::string seen;
  const JsonTextSurvey survey =
      SurveyJsonText(R"(/"x"/ {"a": ['b', true, "\u0063"], "a": {"": -1}})", {},
                     [&seen](JsonTokenKind kind, const JsonTokenReader& tokens) {
                       seen += kind == JsonTokenKind::kString ? "<" : "(";
                       seen += tokens.Text();
                     });
  EXPECT_TRUE(survey.isComplete);
  EXPECT_EQ(seen, "<a<b(true<c<a<(1");
}

TEST(ANestedJsonTextForJsonGlib, MayHave4096Levels) {
  const auto nested = [](std::size_t levels) {
    return R"({"a":)" + Times(levels - 1, "[") + Times(levels - 1, "]") + "}";
  };
  EXPECT_EQ(JudgeJsonText(nested(4096)), JsonTextVerdict::kParse);
  EXPECT_EQ(JudgeJsonText(nested(4097)), kTooComplex);
}

TEST(AFlatJsonTextForJsonGlib, MayHaveAHundredThousandNodes) {
  const auto flat = [](std::size_t nodes) { return R"({"a":[)" + Times(nodes - 3, "1,") + "1]}"; };
  EXPECT_EQ(JudgeJsonText(flat(100000)), JsonTextVerdict::kParse);
  EXPECT_EQ(JudgeJsonText(flat(100001)), kTooComplex);
}

TEST(AJsonTextWithDuplicatesForJsonGlib, MayTakeTwoMillionSteps) {
  const auto repeated = [](std::size_t duplicates) {
    std::string text = "{";
    for (int number = 0; number <= 2000; ++number) {
      text += "\"" + std::to_string(number) + "\":1,";
    }
    return text + Times(duplicates, "\"2000\":1,") + "\"last\":1}";
  };
  EXPECT_EQ(JudgeJsonText(repeated(1000)), JsonTextVerdict::kParse);
  EXPECT_EQ(JudgeJsonText(repeated(1001)), kTooComplex);
}

}  // namespace
}  // namespace quorvex::linux_service
