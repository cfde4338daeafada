// SPDX-License-Identifier: Apache-2.0
//
// Texts that would overrun the stack of a reader that recurses, or hide that they do.
#include <pthread.h>

#include <ctime>
#include <functional>

#include "tests/unit/validation/profile_case.h"
#include "validation/json_guards.h"

namespace quorvex::linux_service {
namespace {

using test::ProfileCase;
using test::Times;

constexpr char kMalformed[] = "The JSON VPN configuration is malformed.";
constexpr char kNotAnObject[] = "The JSON VPN configuration must be an object.";
constexpr char kTooComplex[] = "The JSON VPN configuration exceeds complexity limits.";

constexpr std::size_t kLargest = 2097152;
constexpr std::size_t kSmallStack = std::size_t{1} << 20U;
// Bytes enough for more levels than the small stack holds.
constexpr std::size_t kLong = 200000;

// As many times `piece` as fit between `head` and `tail`.
std::string Filled(const std::string& head, const std::string& piece, const std::string& tail,
                   std::size_t size = kLong) {
  return head + Times((size - head.size() - tail.size()) / piece.size(), piece) + tail;
}

// As many times `open` as `close` around `core`, behind `head` and before `tail`.
std::string Closed(const std::string& open, const std::string& core, const std::string& close,
                   const std::string& head = "", const std::string& tail = "",
                   std::size_t size = kLong) {
  const std::size_t levels =
      (size - head.size() - core.size() - tail.size()) / (open.size() + close.size());
  return head + Times(levels, open) + core + Times(levels, close) + tail;
}

std::string Judge(const std::string& text) {
  EXPECT_LE(text.size(), kLargest);
  GObjectPtr<JsonParser> parser;
  JsonObject* root = nullptr;
  return test::SentenceOf(ParseJsonObject(text, &parser, &root));
}

void* Call(void* work) {
  (*static_cast<std::function<void()>*>(work))();
  return nullptr;
}

// Runs `work` on a thread of a small stack.
void OnSmallStack(std::function<void()> work) {
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, kSmallStack), 0);
  pthread_t thread = {};
  ASSERT_EQ(pthread_create(&thread, &attributes, Call, &work), 0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  ASSERT_EQ(pthread_attr_destroy(&attributes), 0);
}

void ExpectVerdictsOnSmallStack(const std::vector<ProfileCase>& texts) {
  for (const ProfileCase& text : texts) {
    SCOPED_TRACE(text.name);
    OnSmallStack([&text] { EXPECT_EQ(Judge(text.text), text.sentence); });
  }
}

TEST(AHostileJsonText, IsMalformedWhenItStaysOpen) {
  ExpectVerdictsOnSmallStack({{"Arrays", Filled("", "[", ""), kMalformed},
                              {"Objects", Filled("", R"({"a":)", ""), kMalformed},
                              {"ObjectsWithoutNames", Filled("", "{", ""), kMalformed},
                              {"Both", Filled("", R"([{"":)", ""), kMalformed},
                              {"ArraysInAnObject", Filled(R"({"a":)", "[", ""), kMalformed},
                              {"WithElements", Filled("", "[1,", ""), kMalformed},
                              {"WithMembers", Filled("", R"({"b":{},"a":)", ""), kMalformed},
                              {"BehindAnObject", Filled("{}", "[", ""), kMalformed},
                              {"BehindAByteOrderMark", Filled("\xef\xbb\xbf", "[", ""), kMalformed},
                              {"OneBracketOpen", Closed("[", "[", "]"), kMalformed},
                              {"OneBraceOpen", Closed(R"({"":)", R"({"":1)", "}"), kMalformed},
                              {"CrosswiseClosed", Closed("[{\"\":", "", "]}"), kMalformed},
                              {"ClosedOnceTooOften", Closed("[", "", "]", "", "]"), kMalformed},
                              {"NoUtf8", Filled("", "[", "\xff"), kMalformed},
                              {"OnlyClosing", Filled("", "]", ""), kMalformed},
                              {"Assignments", Filled("", "var a=", ""), kMalformed}});
}

TEST(AHostileJsonText, IsRefusedWhenItIsClosed) {
  ExpectVerdictsOnSmallStack(
      {{"Arrays", Closed("[", "", "]"), kNotAnObject},
       {"ArraysOfObjects", Closed(R"([{"":)", "1", "}]"), kNotAnObject},
       {"Objects", Closed(R"({"a":)", "1", "}"), kTooComplex},
       {"ObjectsOfArrays", Closed(R"({"":[)", "", "]}"), kTooComplex},
       {"ArraysInAnObject", Closed("[", "", "]", R"({"a":)", "}"), kTooComplex},
       {"ArraysBehindMembers", Closed("[", "", "]", R"({"a":{},"b":[],"c":)", "}"), kTooComplex},
       {"WithElements", Closed("[1,", "2", ",3]", R"({"a":)", "}"), kTooComplex},
       {"WithComments", Closed("[/*]*/", "", "/*[*/]", R"({"a":)", "}"), kTooComplex},
       {"WithStrings", Closed(R"(["]",)", "1", R"(,"["])", R"({"a":)", "}"), kTooComplex},
       {"BehindAByteOrderMark", Closed("[", "", "]", "\xef\xbb\xbf{\"a\":", "}"), kTooComplex}});
}

// What a reader of strings and comments that differs in the least from the parser's would take for
// a text without nesting.
TEST(AHostileJsonText, HidesNoBracketFromTheGuard) {
  const std::vector<std::pair<const char*, std::string>> disguises = {
      {"ALoneSurrogateTakesAQuote", R"({"\ud800":":)"},
      {"ALoneLowSurrogateTakesAQuote", R"({"\udc00":":)"},
      {"ALoneSurrogateTakesAQuoteInAnArray", R"(["\ud800",",)"},
      {"ALoneSurrogateTakesAnEscape", R"({"\ud800\":":)"},
      {"AShortEscapeTakesAQuote", R"({"\ud8":":)"},
      {"AShorterEscapeTakesAQuote", R"({"\u1":":)"},
      {"APairWithAShortEscape", R"({"\ud800\udc0":":)"},
      {"AnEmptyEscape", R"({"\u":)"},
      {"AnEscapedQuoteOfAnotherKind", R"({"\'":)"},
      {"AnOctalEscape", R"({"\1":)"},
      {"AnEscapedBackslash", R"({"\\":)"},
      {"ABackslashBetweenSingleQuotes", R"({'\':)"},
      {"ADoubleQuoteBetweenSingleOnes", R"({'"':)"},
      {"ASingleQuoteBetweenDoubleOnes", R"({"'":)"},
      {"AQuoteInAComment", R"(/*"*/{"a":)"},
      {"AQuoteInACommentOfSlashes", R"(/ " /{"a":)"},
      {"ASlashAndAQuoteInAComment", R"(/*/{"a/*":)"},
      {"ALineComment", "//\n{\"a\":"},
      {"ALineCommentOnTheSameLine", R"(//{"a":)"},
      {"ACommentThatIsNotClosedYet", R"(/*/{"a":)"},
      {"ACommentBetweenNameAndValue", R"({"a":/*"*/)"},
      {"AnAssignment", R"(var a = {"a":)"},
      {"AnObjectBefore", R"({} {"a":)"},
      {"AStringBehindANumber", R"([1,"a",)"},
      {"AWordBeforeAQuote", R"([a",)"},
      {"ADotBeforeAQuote", R"([.",)"},
      {"ADollarBeforeAQuote", R"([$",)"},
      {"AHexadecimalPrefixBeforeAQuote", R"([0x",)"},
      {"AMinusBeforeAQuote", R"([-",)"},
      {"AHashBeforeAQuote", "#\"\n{\"a\":"},
      {"ABacktick", R"(["`",)"}};
  const std::string brackets(20000, '[');
  for (const auto& [name, head] : disguises) {
    for (const char* tail : {"", "\"}", "'}", "\"]", "*/}", "/}"}) {
      SCOPED_TRACE(name + std::string(" with ") + tail);
      OnSmallStack([&, text = head + brackets + tail] { EXPECT_NE(Judge(text), ""); });
    }
    SCOPED_TRACE(name);
    const std::string closed = head + brackets + std::string(brackets.size(), ']') + "}";
    OnSmallStack([&closed] { EXPECT_NE(Judge(closed), ""); });
  }
}

// A build with a sanitizer is several times as slow.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr std::clock_t kPatience = 5 * CLOCKS_PER_SEC;
#else
constexpr std::clock_t kPatience = CLOCKS_PER_SEC;
#endif

TEST(AHostileJsonText, IsRefusedWithinASecondAtFullSize) {
  const std::vector<ProfileCase> texts = {
      {"OpenArrays", Filled("", "[", "", kLargest), kMalformed},
      {"OpenObjects", Filled("", R"({"":)", "", kLargest), kMalformed},
      {"ClosedArrays", Closed("[", "", "]", "", "", kLargest), kNotAnObject},
      {"ClosedObjects", Closed(R"({"":)", "1", "}", "", "", kLargest), kTooComplex},
      {"HiddenArrays", Filled(R"({"\ud800":":)", "[", "\"}", kLargest), kMalformed},
      {"Numbers", Filled(R"({"a":[1)", ",1", "]}", kLargest), kTooComplex}};
  for (const ProfileCase& text : texts) {
    SCOPED_TRACE(text.name);
    const std::clock_t begin = std::clock();
    EXPECT_EQ(Judge(text.text), text.sentence);
    EXPECT_LT(std::clock() - begin, kPatience);
  }
}

TEST(AnHonestJsonText, MayHoldBracketsInStrings) {
  ExpectVerdictsOnSmallStack(
      {{"AsAValue", Filled(R"({"a":")", "[", "\"}")},
       {"AsAName", Filled(R"({")", "{", "\":1}")},
       {"BehindEscapes", Filled(R"({"a":"\"\\\u00e9\ud83d\ude00)", "[", "\"}")},
       {"BetweenEscapes", Filled(R"({"a":")", R"([\"{\\)", "\"}")},
       {"BetweenSingleQuotes", Filled(R"({'a':')", "[", "'}")},
       {"InAComment", Filled("/*", "[", "*/{}")},
       {"InACommentBehindIt", Filled("{}/*", "{[", "*/")}});
}

TEST(AnHonestJsonText, MayHoldManyStringsWithBrackets) {
  const std::string element = R"("regexp:^[a-z]{",)";
  ExpectVerdictsOnSmallStack(
      {{"Unbalanced", R"({"a":[)" + Times(99000, element) + "1]}"},
       {"InObjects", R"({"a":[)" + Times(30000, R"({"b":["["]},)") + "1]}"}});
}

TEST(AnHonestJsonText, MayHaveAHundredThousandNodes) {
  ExpectVerdictsOnSmallStack({{"Objects", R"({"a":[)" + Times(99997, "{},") + "1]}"},
                              {"Arrays", R"({"a":[)" + Times(99997, "[],") + "1]}"},
                              {"Pairs", R"({"a":[)" + Times(49998, R"({"b":1},)") + "1]}"}});
}

}  // namespace
}  // namespace quorvex::linux_service
