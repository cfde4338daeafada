// SPDX-License-Identifier: Apache-2.0
//
// Looks a JSON text over before json-glib parses it. json-glib is recursive without a limit (deep
// nesting overflows the stack and kills the service), walks past other members for each name that
// is a duplicate or has another's hash (minutes for one text), and never frees the roots that
// follow the first one.
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

#include "validation/json_tokens.h"

namespace quorvex::linux_service {

struct JsonTextLimits {
  // Of containers in each other; json-glib takes some 160 bytes of stack for one.
  std::uint64_t depth = 4096;
  // The tree's own limit; the values of all roots count, for their memory stays.
  std::uint64_t nodes = 100000;
  // Members that json-glib walks past because of such names, some 10 ns each time.
  std::uint64_t memberSteps = 2000000;
};

enum class JsonTextVerdict { kParse, kMalformed, kNotAnObject, kTooComplex };

// What one look at a text tells of the tree that json-glib will make.
struct JsonTextSurvey {
  JsonTextVerdict verdict = JsonTextVerdict::kMalformed;
  // Whether the whole text was read within the limits; nothing more is known if not.
  bool isComplete = false;
  // The tree has no more nodes than this, and no node of it lies deeper than this below the root.
  std::uint64_t nodes = 0;
  std::uint64_t depth = 0;
};

// Is shown every string and every word, the last token of `tokens`, in the order of the text.
using JsonTokenWatch = std::function<void(JsonTokenKind kind, const JsonTokenReader& tokens)>;

// The verdict is whether `text` is safe to parse; if it is, json-glib's verdict counts, and if it
// is not, this one is json-glib's as far as the text's structure tells it (numbers and words are
// not looked into). A tree that keeps to the limits is refused only for what no writer of JSON
// writes: parts beyond the limits that json-glib reads and then drops (members that a duplicate
// replaces, except for their nodes; roots behind the first), a blank inside a number, a broken
// "var" statement. Takes linear time and little stack.
[[nodiscard]] JsonTextSurvey SurveyJsonText(std::string_view text, const JsonTextLimits& limits,
                                            const JsonTokenWatch& watch);

}  // namespace quorvex::linux_service
