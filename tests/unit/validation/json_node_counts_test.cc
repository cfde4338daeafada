// SPDX-License-Identifier: Apache-2.0
//
// The guard counts the nodes of random texts full of duplicates, in all spellings of their names,
// and finds as many as json-glib leaves in the tree. What else the tokens of such texts tell, the
// tree must bear out.
#include <array>
#include <random>

#include "runtime/glib_ptr.h"
#include "tests/unit/validation/json_verdict.h"
#include "tests/unit/validation/profile_case.h"
#include "validation/json_guards.h"
#include "validation/json_rewrite_guard.h"

namespace quorvex::linux_service {
namespace {

constexpr std::uint64_t kAny = 1000000000;
constexpr int kTexts = 20000;

// Everything that may shift where a token ends, and several spellings of one name.
constexpr std::array kNames = {
    R"("a")",        R"('a')",
    R"("\u0061")",   R"("\141")",
    R"("\a")",       R"("a\u0000z")",
    R"("b")",        R"("\b")",
    R"("\u0008")",   R"('\b')",
    R"("\\b")",      R"("\"")",
    R"('"')",        R"("\u00e9")",
    "\"\u00e9\"",    R"("\u")",
    R"("\u12")",     R"("\ud83d\ude00")",
    R"("\ud83d")",   R"("\ude00")",
    R"("\0x")",      R"("\1411")",
    R"("{")",        R"("]")",
    R"('/')",        R"("\/")",
    R"("")",         "\"\n\"",
    R"("\12")",      R"("\u0061b")",
    R"("type")",     R"('type')",
    R"("path")",     R"("local")",
    R"("LOC\101L")", R"('local')",
    R"("keyfile")",  R"("Key\u005fPath")",
    R"("ext:a")",    R"('EXT-IP:b')",
};
constexpr std::array kGaps = {"", "", "", "", " ", "\n", "\t", "/ {[ /", "/* \" */", "//"};

class RandomTexts {
 public:
  explicit RandomTexts(std::uint64_t seed) : source(seed) {}

  std::string Next() { return Gap() + Container(4) + Gap(); }

 private:
  // Plain arithmetic in place of a distribution, so that every library draws the same texts.
  std::uint64_t Below(std::uint64_t bound) { return source() % bound; }

  template <typename Table>
  std::string OneOf(const Table& table) {
    return table[Below(table.size())];
  }
  std::string Gap() { return OneOf(kGaps); }

  std::string Value(unsigned levels) {
    constexpr std::array kScalars = {"1", "-2.5", "- 7", "true", "null"};
    switch (levels == 0 ? 0 : Below(4)) {
      case 0:
        return OneOf(kScalars);
      case 1:
        return OneOf(kNames);
      default:
        return Container(levels - 1);
    }
  }

  std::string Container(unsigned levels) {
    return Below(3) == 0 ? "[" + Elements(levels, false) + "]" : "{" + Elements(levels, true) + "}";
  }

  std::string Elements(unsigned levels, bool named) {
    std::string text = Gap();
    for (std::uint64_t left = Below(5); left > 0; --left) {
      text += named ? OneOf(kNames) + Gap() + ":" + Gap() : "";
      text += Value(levels) + Gap() + (left > 1 ? "," : "") + Gap();
    }
    return text;
  }

  std::mt19937_64 source;
};

// The verdict on a text that has a node more than it may.
JsonTextVerdict RefusalFor(JsonNode* root) {
  return JSON_NODE_HOLDS_OBJECT(root) ? JsonTextVerdict::kTooComplex
                                      : JsonTextVerdict::kNotAnObject;
}

// False when json-glib finds the text malformed, which a broken escape makes it.
bool IsCountedExactly(const std::string& text) {
  const GObjectPtr<JsonParser> parser(json_parser_new());
  if (json_parser_load_from_data(parser.get(), text.data(), static_cast<gssize>(text.size()),
                                 nullptr) == FALSE) {
    return false;
  }
  JsonNode* root = json_parser_get_root(parser.get());
  std::uint64_t nodes = 0;
  EXPECT_TRUE(JsonWithinLimits(root, 0, &nodes));
  EXPECT_EQ(JudgeJsonText(text, {kAny, nodes, kAny}), JsonTextVerdict::kParse);
  EXPECT_EQ(JudgeJsonText(text, {kAny, nodes - 1, kAny}), RefusalFor(root));
  return true;
}

struct Tally {
  int withReferences = 0;
  int withoutReferences = 0;
};

void HoldToItsTree(const std::string& text, const JsonProfile& profile, Tally* tally) {
  const ForbiddenReferences found = FindForbiddenReferences(profile.root);
  const ForbiddenReferences told = FindForbiddenReferences(profile);
  EXPECT_EQ(told.file, found.file);
  EXPECT_EQ(told.external, found.external);
  EXPECT_EQ(profile.survivesRewriting, SurvivesRewriting(text));
  tally->withReferences += found.file || found.external ? 1 : 0;
  tally->withoutReferences += profile.lacksReferences ? 1 : 0;
}

TEST(TheTokensOfAText, TellWhatItsTreeSays) {
  RandomTexts texts(2);
  Tally tally;
  for (int number = 0; number < kTexts && !HasFailure(); ++number) {
    const std::string text = texts.Next();
    SCOPED_TRACE(text);
    JsonProfile profile;
    if (ParseJsonProfile(text, &profile).valid) {
      HoldToItsTree(text, profile, &tally);
    }
  }
  EXPECT_GT(tally.withReferences, kTexts / 50);
  EXPECT_GT(tally.withoutReferences, kTexts / 50);
}

TEST(TheGuard, CountsTheNodesOfTheTree) {
  RandomTexts texts(1);
  int counted = 0;
  for (int number = 0; number < kTexts && !HasFailure(); ++number) {
    const std::string text = texts.Next();
    SCOPED_TRACE(text);
    counted += IsCountedExactly(text) ? 1 : 0;
  }
  EXPECT_GT(counted, kTexts / 4);
}

}  // namespace
}  // namespace quorvex::linux_service
