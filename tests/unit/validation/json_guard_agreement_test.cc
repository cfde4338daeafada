// SPDX-License-Identifier: Apache-2.0
//
// The guard reads texts before json-glib does and must read them alike. Here json-glib says itself,
// by its signals, how deep it went, on thousands of small texts that the guard gets small limits
// for. --gtest_random_seed=N repeats a run.
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <random>
#include <span>
#include <vector>

#include "runtime/glib_ptr.h"
#include "tests/unit/validation/json_verdict.h"
#include "validation/json_guards.h"

namespace quorvex::linux_service {
namespace {

constexpr int kTexts = 20000;
constexpr std::uint64_t kNoLimit = 1000000;

// What json-glib makes of a text.
struct Reading {
  bool loads = false;
  bool rootIsObject = false;
  // The deepest nesting that was parsed, also of a text that turned out malformed.
  std::uint64_t deepest = 0;
  std::uint64_t depth = 0;
};

void Enter(JsonParser* /*parser*/, gpointer data) {
  auto* reading = static_cast<Reading*>(data);
  reading->deepest = std::max(reading->deepest, ++reading->depth);
}

// Objects and arrays end with the same shape of signal.
void Leave(JsonParser* /*parser*/, gpointer /*container*/, gpointer data) {
  --static_cast<Reading*>(data)->depth;
}

Reading Parse(const std::string& text) {
  Reading reading;
  const GObjectPtr<JsonParser> parser(json_parser_new());
  for (const char* signal : {"array-start", "object-start"}) {
    g_signal_connect(parser.get(), signal, G_CALLBACK(Enter), &reading);
  }
  for (const char* signal : {"array-end", "object-end"}) {
    g_signal_connect(parser.get(), signal, G_CALLBACK(Leave), &reading);
  }
  reading.loads = json_parser_load_from_data(parser.get(), text.data(),
                                             static_cast<gssize>(text.size()), nullptr) != FALSE;
  JsonNode* root = json_parser_get_root(parser.get());
  reading.rootIsObject = root != nullptr && JSON_NODE_HOLDS_OBJECT(root);
  return reading;
}

// Writes JSON with everything that json-glib knows besides, and then spoils some of it.
class TextMaker {
 public:
  explicit TextMaker(std::uint32_t seed) : numbers(seed) {}

  std::string Make() {
    std::string text = Below(4) == 0 ? Soup() : Idle() + Value(4) + Idle();
    for (std::uint32_t spoilt = Below(3); spoilt > 0 && !text.empty(); --spoilt) {
      Spoil(&text);
    }
    return text;
  }

 private:
  std::uint32_t Below(std::uint32_t limit) { return static_cast<std::uint32_t>(numbers() % limit); }

  const char* OneOf(std::span<const char* const> choices) {
    return choices[Below(static_cast<std::uint32_t>(choices.size()))];
  }

  std::string Soup() {
    std::string text;
    for (std::uint32_t count = Below(14); count > 0; --count) {
      text += Piece();
    }
    return text;
  }

  const char* Piece() {
    static constexpr const char* kPieces[] = {
        "[",  "]",        "{",     "}",    "\"",       "'",           "\\", "/",    "*",  "//",
        "/*", "*/",       ",",     ":",    "\"a\"",    "\"\":",       "1",  "0x",   "0",  ".",
        "-",  "+",        "e",     "$",    "#",        "\n",          " ",  "true", "=",  "var",
        "a",  ";",        "\\u",   "\\\"", "\\ud800",  "d80",         "[[", "]]",   "{}", "`",
        "\f", "\xc3\xa9", "\\u00", "\\1",  "var a = ", "\xef\xbb\xbf"};
    return OneOf(kPieces);
  }

  std::string Idle() {
    static constexpr const char* kIdle[] = {"",     "",      "",         "",      " ",     "\n",
                                            "/**/", "/*[*/", "/*\"*/",   "/ [ /", "//",    "/*/",
                                            "/'/",  "\t",    "var a = ", "{}",    "[[[]]]"};
    return Below(4) == 0 ? OneOf(kIdle) : "";
  }

  std::string String() {
    static constexpr const char* kInsides[] = {"",
                                               "a",
                                               "[",
                                               "]",
                                               "{",
                                               "\\\"",
                                               "\\\\",
                                               "\\/",
                                               "'",
                                               "\\'",
                                               "\\u00e9",
                                               "\\ud83d\\ude00",
                                               "\\ud800",
                                               "\\udc00",
                                               "\\u12",
                                               "\\u",
                                               "\\1",
                                               "\\777",
                                               "\\x",
                                               ":",
                                               "\\ud800\\",
                                               "\\ud800\\u0041",
                                               "/*",
                                               "//",
                                               "\\ud800\\ud800",
                                               "\\u000g",
                                               "\n",
                                               "\\\n"};
    const std::string quote = Below(5) == 0 ? "'" : "\"";
    std::string text = quote;
    for (std::uint32_t count = Below(3); count > 0; --count) {
      text += OneOf(kInsides);
    }
    return text + quote;
  }

  std::string Scalar() {
    static constexpr const char* kScalars[] = {"1",    "-1",    "1.5e3", "0x1f", "017", "true",
                                               "null", "false", "- 2",   ".5",   "$1",  "1."};
    return Below(2) == 0 ? String() : OneOf(kScalars);
  }

  std::string Value(std::uint32_t levels) {
    if (levels == 0 || Below(4) == 0) {
      return Scalar();
    }
    const bool isObject = Below(2) == 0;
    std::string text = isObject ? "{" : "[";
    for (std::uint32_t count = Below(4); count > 0; --count) {
      text += Idle() + (isObject ? String() + Idle() + ":" + Idle() : "") + Value(levels - 1) +
              Idle() + (count > 1 ? "," : "");
    }
    return text + Idle() + (isObject ? "}" : "]");
  }

  void Spoil(std::string* text) {
    const std::size_t at = Below(static_cast<std::uint32_t>(text->size()));
    switch (Below(3)) {
      case 0:
        text->erase(at, 1);
        break;
      case 1:
        text->insert(at, Piece());
        break;
      default:
        text->insert(at, text->substr(at, Below(8)));
    }
  }

  std::mt19937 numbers;
};

std::uint32_t Seed() {
  const auto given = static_cast<std::uint32_t>(::testing::GTEST_FLAG(random_seed));
  return given != 0 ? given : 1 + std::random_device()() % 99999;
}

// Holds every generated text to `property`.
template <typename Property>
void ForGeneratedTexts(Property property) {
  const std::uint32_t seed = Seed();
  std::cout << "seed " << seed << '\n';
  TextMaker maker(seed);
  for (int count = 0; count < kTexts && !::testing::Test::HasFailure(); ++count) {
    const std::string text = maker.Make();
    SCOPED_TRACE("seed " + std::to_string(seed) + ": " + text);
    property(text, Parse(text));
  }
}

JsonTextVerdict Judge(const std::string& text, std::uint64_t depth) {
  return JudgeJsonText(text, {.depth = depth, .nodes = kNoLimit, .memberSteps = kNoLimit});
}

TEST(TheGuard, LetsNoTextThroughThatIsDeeperThanItsLimit) {
  ForGeneratedTexts([](const std::string& text, const Reading& reading) {
    for (std::uint64_t depth = 0; depth < reading.deepest; ++depth) {
      EXPECT_NE(Judge(text, depth), JsonTextVerdict::kParse) << "limit " << depth;
    }
  });
}

// No writer of JSON writes a variable or a dollar sign outside strings, of which json-glib accepts
// stranger forms than the guard does.
bool IsNotForWriters(const std::string& text) {
  return text.find("var") != std::string::npos || text.find('$') != std::string::npos;
}

TEST(TheGuard, LetsEveryTextThroughThatKeepsToItsLimit) {
  ForGeneratedTexts([](const std::string& text, const Reading& reading) {
    if (reading.loads && !IsNotForWriters(text)) {
      EXPECT_EQ(Judge(text, reading.deepest), JsonTextVerdict::kParse);
    }
  });
}

TEST(TheGuard, RefusesOnlyAsTheParserWould) {
  ForGeneratedTexts([](const std::string& text, const Reading& reading) {
    const JsonTextVerdict verdict = Judge(text, 0);
    if (verdict == JsonTextVerdict::kMalformed) {
      EXPECT_TRUE(!reading.loads || IsNotForWriters(text));
    } else if (verdict == JsonTextVerdict::kTooComplex) {
      EXPECT_TRUE(!reading.loads || reading.rootIsObject);
    } else if (verdict == JsonTextVerdict::kNotAnObject) {
      EXPECT_TRUE(!reading.loads || !reading.rootIsObject);
    }
  });
}

TEST(TheGuard, LeavesEveryVerdictOnAShallowTextAsItWas) {
  int accepted = 0;
  ForGeneratedTexts([&accepted](const std::string& text, const Reading& reading) {
    GObjectPtr<JsonParser> parser;
    JsonObject* root = nullptr;
    const ValidationResult verdict = ParseJsonObject(text, &parser, &root);
    const char* expected = !reading.loads          ? "The JSON VPN configuration is malformed."
                           : !reading.rootIsObject ? "The JSON VPN configuration must be an object."
                                                   : "";
    EXPECT_EQ(verdict.message, expected);
    accepted += verdict.valid ? 1 : 0;
  });
  // The texts are of both kinds.
  EXPECT_GT(accepted, kTexts / 50);
  EXPECT_LT(accepted, kTexts / 2);
}

}  // namespace
}  // namespace quorvex::linux_service
