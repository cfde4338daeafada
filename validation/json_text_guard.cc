// SPDX-License-Identifier: Apache-2.0
#include "validation/json_text_guard.h"

#include <glib.h>

#include <array>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "validation/json_tokens.h"

namespace quorvex::linux_service {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
// json-glib's own "var name = value", known outside containers only.
constexpr std::string_view kVariableKeyword = "var";

struct Member {
  std::string name;
  // How many members stand before it.
  std::uint64_t position = 0;
  std::uint64_t nodes = 0;
};

// An open object or array and what has been read of it.
struct Container {
  std::uint64_t nodes = 1;
  // By the hash that json-glib uses: who knows it can make names collide at will.
  std::multimap<guint, Member> members;
  // The one whose value comes next; null in an array.
  Member* current = nullptr;
};

// The object's member of that name, a new one if there is none yet. Adds what finding it costs
// json-glib to `steps`.
Member* TouchMember(std::string name, Container* object, std::uint64_t* steps) {
  const guint hash = g_str_hash(name.c_str());
  const auto [first, last] = object->members.equal_range(hash);
  for (auto entry = first; entry != last; ++entry, ++*steps) {
    if (entry->second.name == name) {
      *steps += entry->second.position;
      return &entry->second;
    }
  }
  Member member = {std::move(name), object->members.size(), 0};
  return &object->members.emplace_hint(last, hash, std::move(member))->second;
}

// Follows a text's structure with stacks of its own in place of recursion.
class JsonTextReader {
 public:
  JsonTextReader(std::string_view text, const JsonTextLimits& allowed)
      : tokens(text), limits(allowed) {}

  [[nodiscard]] JsonTextVerdict Read();

 private:
  enum class Expected {
    kRoot,
    kVariable,
    kAssign,
    kAssigned,
    kNameOrEnd,
    kName,
    kColon,
    kValueOrEnd,
    kValue,
    kCommaOrEnd,
  };

  // Each is false where the text is malformed.
  [[nodiscard]] bool Accept(JsonTokenKind token);
  [[nodiscard]] bool AcceptString();
  [[nodiscard]] bool AcceptWord();
  [[nodiscard]] bool AcceptScalar();
  [[nodiscard]] bool AcceptComma();
  [[nodiscard]] bool AcceptColon();
  [[nodiscard]] bool AcceptAssignment();
  [[nodiscard]] bool Open(bool isObject);
  [[nodiscard]] bool Close(bool isObject);

  [[nodiscard]] bool ExpectsValue() const;
  void BeginValue(bool isObject);
  void BeginMember();
  void EndValue(std::uint64_t nodes);
  void GiveUp();

  JsonTokenReader tokens;
  JsonTextLimits limits;
  Expected expected = Expected::kRoot;
  // Whether each open container is an object, outermost first.
  std::vector<char> open;
  // The same containers in detail; empty for good once a limit is exceeded beyond remedy.
  std::vector<Container> containers;
  bool hopeless = false;
  std::optional<bool> rootIsObject;
  std::uint64_t assignments = 0;
  std::uint64_t memberSteps = 0;
  std::uint64_t rootNodes = 0;
};

JsonTextVerdict JsonTextReader::Read() {
  JsonTokenKind token = tokens.Next();
  for (; token != JsonTokenKind::kEnd; token = tokens.Next()) {
    if (!Accept(token)) {
      return JsonTextVerdict::kMalformed;
    }
  }
  if (expected != Expected::kRoot) {
    return JsonTextVerdict::kMalformed;
  }
  if (!hopeless && rootNodes <= limits.nodes) {
    return JsonTextVerdict::kParse;
  }
  return rootIsObject.value_or(false) ? JsonTextVerdict::kTooComplex
                                      : JsonTextVerdict::kNotAnObject;
}

bool JsonTextReader::Accept(JsonTokenKind token) {
  switch (token) {
    case JsonTokenKind::kString:
      return AcceptString();
    case JsonTokenKind::kWord:
      return AcceptWord();
    case JsonTokenKind::kOpenObject:
    case JsonTokenKind::kOpenArray:
      return Open(token == JsonTokenKind::kOpenObject);
    case JsonTokenKind::kCloseObject:
    case JsonTokenKind::kCloseArray:
      return Close(token == JsonTokenKind::kCloseObject);
    case JsonTokenKind::kColon:
      return AcceptColon();
    case JsonTokenKind::kComma:
      return AcceptComma();
    case JsonTokenKind::kAssign:
      return AcceptAssignment();
    case JsonTokenKind::kEnd:
    case JsonTokenKind::kBroken:
      break;
  }
  return false;
}

bool JsonTextReader::AcceptString() {
  if (expected != Expected::kName && expected != Expected::kNameOrEnd) {
    return AcceptScalar();
  }
  BeginMember();
  expected = Expected::kColon;
  return true;
}

bool JsonTextReader::AcceptWord() {
  const bool outside = expected == Expected::kRoot || expected == Expected::kAssigned;
  if (outside && tokens.Text() == kVariableKeyword) {
    expected = Expected::kVariable;
    return true;
  }
  if (expected == Expected::kVariable) {
    expected = Expected::kAssign;
    return true;
  }
  return AcceptScalar();
}

bool JsonTextReader::AcceptScalar() {
  if (!ExpectsValue()) {
    return false;
  }
  BeginValue(false);
  EndValue(1);
  return true;
}

bool JsonTextReader::AcceptComma() {
  if (expected != Expected::kCommaOrEnd) {
    return false;
  }
  expected = open.back() != 0 ? Expected::kName : Expected::kValue;
  return true;
}

bool JsonTextReader::AcceptColon() {
  if (expected != Expected::kColon) {
    return false;
  }
  expected = Expected::kValue;
  return true;
}

// json-glib recurses into the value, so that a chain of assignments is as deep as it is long.
bool JsonTextReader::AcceptAssignment() {
  if (expected != Expected::kAssign) {
    return false;
  }
  if (++assignments > limits.depth) {
    GiveUp();
  }
  expected = Expected::kAssigned;
  return true;
}

bool JsonTextReader::Open(bool isObject) {
  if (!ExpectsValue()) {
    return false;
  }
  BeginValue(isObject);
  open.push_back(isObject ? 1 : 0);
  expected = isObject ? Expected::kNameOrEnd : Expected::kValueOrEnd;
  if (open.size() > limits.depth) {
    GiveUp();
  } else if (!hopeless) {
    containers.emplace_back();
  }
  return true;
}

bool JsonTextReader::Close(bool isObject) {
  const bool isEmpty = expected == (isObject ? Expected::kNameOrEnd : Expected::kValueOrEnd);
  if (open.empty() || (open.back() != 0) != isObject ||
      (!isEmpty && expected != Expected::kCommaOrEnd)) {
    return false;
  }
  open.pop_back();
  std::uint64_t nodes = 0;
  if (!hopeless) {
    nodes = containers.back().nodes;
    containers.pop_back();
  }
  EndValue(nodes);
  return true;
}

// Of several roots json-glib returns the first.
void JsonTextReader::BeginValue(bool isObject) {
  if (open.empty() && !rootIsObject) {
    rootIsObject = isObject;
  }
}

bool JsonTextReader::ExpectsValue() const {
  return expected == Expected::kRoot || expected == Expected::kAssigned ||
         expected == Expected::kValue || expected == Expected::kValueOrEnd;
}

void JsonTextReader::BeginMember() {
  if (hopeless) {
    return;
  }
  Container& object = containers.back();
  object.current = TouchMember(std::string(tokens.Text()), &object, &memberSteps);
  if (memberSteps > limits.memberSteps) {
    GiveUp();
  }
}

// A value of so many nodes is complete; in an object it replaces an earlier one of its name.
void JsonTextReader::EndValue(std::uint64_t nodes) {
  expected = open.empty() ? Expected::kRoot : Expected::kCommaOrEnd;
  if (hopeless) {
    return;
  }
  if (open.empty()) {
    rootNodes += nodes;
    return;
  }
  Container& parent = containers.back();
  parent.nodes += nodes;
  if (parent.current != nullptr) {
    parent.nodes -= std::exchange(parent.current->nodes, nodes);
  }
}

// Only the structure matters from here on.
void JsonTextReader::GiveUp() {
  hopeless = true;
  containers.clear();
}

// How often each byte occurs in a text.
class ByteCounts {
 public:
  explicit ByteCounts(std::string_view text) {
    for (const char byte : text) {
      ++counts[static_cast<unsigned char>(byte)];
    }
  }
  [[nodiscard]] std::uint64_t Of(unsigned char byte) const { return counts[byte]; }

 private:
  std::array<std::uint64_t, 256> counts = {};
};

// True for nearly every profile: no way to read so few symbols exceeds a limit.
bool HasFewSymbols(std::string_view text, const JsonTextLimits& limits) {
  const ByteCounts counts(text);
  const std::uint64_t opened = counts.Of('[') + counts.Of('{');
  const std::uint64_t assigned = counts.Of('=');
  // Every value follows an opening bracket, a comma or an assignment, or it is a root: the first of
  // all or a bracket itself.
  return opened + assigned <= limits.depth &&
         2 * opened + counts.Of(',') + assigned + 1 <= limits.nodes &&
         counts.Of(':') * counts.Of(':') <= limits.memberSteps;
}

}  // namespace

JsonTextVerdict JudgeJsonText(std::string_view text, const JsonTextLimits& limits) {
  if (HasFewSymbols(text, limits)) {
    return JsonTextVerdict::kParse;
  }
  // json-glib refuses any other text as a whole.
  if (g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr) == FALSE) {
    return JsonTextVerdict::kMalformed;
  }
  if (text.starts_with(kByteOrderMark)) {
    text.remove_prefix(kByteOrderMark.size());
  }
  return JsonTextReader(text, limits).Read();
}

}  // namespace quorvex::linux_service
