// SPDX-License-Identifier: Apache-2.0
//
// The guard reads a text as json-glib does: random texts, odd ones among them, go to both.
#include <array>
#include <random>

#include "runtime/glib_ptr.h"
#include "tests/unit/validation/profile_case.h"
#include "validation/json_guards.h"
#include "validation/json_text_guard.h"

namespace quorvex::linux_service {
namespace {

constexpr std::uint64_t kAny = 1000000000;

// Everything that may shift where a token ends, and several spellings of one name.
constexpr std::array kNames = {
    R"("a")",      R"('a')",      R"("\u0061")", R"("\141")",  R"("\a")",   R"("a\u0000z")",
    R"("b")",      R"("\b")",     R"("\u0008")", R"('\b')",    R"("\\b")",  R"("\"")",
    R"('"')",      R"("\u00e9")", "\"\u00e9\"",  R"("\u")",    R"("\u12")", R"("\ud83d\ude00")",
    R"("\ud83d")", R"("\ude00")", R"("\0x")",    R"("\1411")", R"("{")",    R"("]")",
    R"('/')",      R"("\/")",     R"("")",       "\"\n\"",     R"("\12")",  R"("\u0061b")",
};
constexpr std::array kGaps = {"", "", "", "", " ", "\n", "\t", "/ {[ /", "/* \" */", "//"};
constexpr std::array kPieces = {
    "{",       "}",    "[", "]",   ":",    ",",  "\"",       "'",    "/",  "\\",
    "=",       "var ", "a", "1",   "-",    " ",  "\n",       "{}",   "[]", "\\u12",
    "\\ud83d", "@",    "#", "0x1", "null", "\f", "\xC3\xA9", "\xFF",
};

class RandomTexts {
 public:
  explicit RandomTexts(std::uint64_t seed) : source(seed) {}

  std::string Next() {
    std::string text = Below(10) == 0 ? "var a = " : "";
    for (std::uint64_t roots = Below(8) == 0 ? 2 : 1; roots > 0; --roots) {
      text += Gap() + Value(4) + Gap();
    }
    for (std::uint64_t faults = Below(3) == 0 ? Below(3) : 0; faults > 0; --faults) {
      text = Spoilt(text);
    }
    return text;
  }

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
      case 2:
        return "[" + Elements(levels - 1, false) + "]";
      default:
        return "{" + Elements(levels - 1, true) + "}";
    }
  }

  std::string Elements(unsigned levels, bool named) {
    std::string text = Gap();
    for (std::uint64_t left = Below(5); left > 0; --left) {
      text += named ? OneOf(kNames) + Gap() + ":" + Gap() : "";
      text += Value(levels) + Gap() + (left > 1 ? "," : "") + Gap();
    }
    return text;
  }

  std::string Spoilt(const std::string& text) {
    const std::size_t at = Below(text.size() + 1);
    switch (Below(3)) {
      case 0:
        return text.substr(0, at) + OneOf(kPieces) + text.substr(at);
      case 1:
        return text.substr(0, at) + text.substr(std::min(at + 1, text.size()));
      default:
        return text.substr(0, at);
    }
  }

  std::mt19937_64 source;
};

// json-glib's reading of a text.
class Reading {
 public:
  explicit Reading(const std::string& text) : parser(json_parser_new()) {
    for (const char* signal : {"object-start", "array-start"}) {
      g_signal_connect_swapped(parser.get(), signal, G_CALLBACK(Down), this);
    }
    for (const char* signal : {"object-end", "array-end"}) {
      g_signal_connect_swapped(parser.get(), signal, G_CALLBACK(Up), this);
    }
    parsed = json_parser_load_from_data(parser.get(), text.data(), static_cast<gssize>(text.size()),
                                        nullptr) != FALSE;
  }

  // Null when the text is malformed or empty.
  [[nodiscard]] JsonNode* Root() const {
    return parsed ? json_parser_get_root(parser.get()) : nullptr;
  }
  [[nodiscard]] std::uint64_t Nodes() const {
    std::uint64_t count = 0;
    EXPECT_TRUE(JsonWithinLimits(Root(), 0, &count));
    return count;
  }
  [[nodiscard]] std::uint64_t Deepest() const { return deepest; }
  [[nodiscard]] bool HasOneRoot() const { return roots == 1; }

 private:
  static void Down(Reading* self) {
    self->roots += self->depth == 0 ? 1U : 0U;
    self->deepest = std::max(self->deepest, ++self->depth);
  }
  static void Up(Reading* self) { --self->depth; }

  GObjectPtr<JsonParser> parser;
  bool parsed = false;
  std::uint64_t depth = 0;
  std::uint64_t deepest = 0;
  std::uint64_t roots = 0;
};

// The verdict on a text that is read to its end because it has too many nodes from the outset.
JsonTextVerdict FullVerdict(const std::string& text) {
  return JudgeJsonText(text, {kAny, 0, kAny});
}

JsonTextVerdict RefusalFor(JsonNode* root) {
  return JSON_NODE_HOLDS_OBJECT(root) ? JsonTextVerdict::kTooComplex
                                      : JsonTextVerdict::kNotAnObject;
}

constexpr int kTexts = 30000;

// Counts the texts that were of use, so that a test of nothing fails.
template <typename Check>
int ForEachText(Check check) {
  RandomTexts texts(1);
  int useful = 0;
  for (int number = 0; number < kTexts && !::testing::Test::HasFailure(); ++number) {
    const std::string text = texts.Next();
    SCOPED_TRACE(text);
    useful += check(text, Reading(text)) ? 1 : 0;
  }
  return useful;
}

TEST(TheGuard, FindsNoParsedTextMalformedAndKnowsItsRoot) {
  const int useful = ForEachText([](const std::string& text, const Reading& reading) {
    if (reading.Root() == nullptr) {
      return false;
    }
    EXPECT_EQ(FullVerdict(text), RefusalFor(reading.Root()));
    return true;
  });
  EXPECT_GT(useful, kTexts / 3);
}

TEST(TheGuard, FindsMostMalformedTextsMalformed) {
  int found = 0;
  const int malformed = ForEachText([&found](const std::string& text, const Reading& reading) {
    const bool useful = reading.Root() == nullptr;
    found += useful && FullVerdict(text) == JsonTextVerdict::kMalformed ? 1 : 0;
    return useful;
  });
  EXPECT_GT(malformed, kTexts / 10);
  EXPECT_GT(found, malformed * 3 / 4);
}

TEST(TheGuard, CountsTheNodesOfTheTree) {
  const int useful = ForEachText([](const std::string& text, const Reading& reading) {
    if (reading.Root() == nullptr || !reading.HasOneRoot() ||
        JSON_NODE_HOLDS_VALUE(reading.Root())) {
      return false;
    }
    const std::uint64_t nodes = reading.Nodes();
    EXPECT_EQ(JudgeJsonText(text, {kAny, nodes, kAny}), JsonTextVerdict::kParse);
    EXPECT_EQ(JudgeJsonText(text, {kAny, nodes - 1, kAny}), RefusalFor(reading.Root()));
    return true;
  });
  EXPECT_GT(useful, kTexts / 4);
}

// The one that keeps the service alive: also where json-glib only finds out later that the text is
// malformed.
TEST(TheGuard, SeesEveryLevelThatJsonGlibEnters) {
  const int useful = ForEachText([](const std::string& text, const Reading& reading) {
    if (reading.Deepest() == 0) {
      return false;
    }
    EXPECT_NE(JudgeJsonText(text, {reading.Deepest() - 1, kAny, kAny}), JsonTextVerdict::kParse);
    return true;
  });
  EXPECT_GT(useful, kTexts / 2);
}

}  // namespace
}  // namespace quorvex::linux_service
