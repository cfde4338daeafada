// SPDX-License-Identifier: Apache-2.0
#include "validation/json_text_guard.h"

#include <glib.h>

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "validation/json_open_members.h"

namespace quorvex::linux_service {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
// json-glib's own "var name = value", known outside containers only.
constexpr std::string_view kVariableKeyword = "var";

// Follows a text's structure with stacks of its own in place of recursion.
class JsonTextReader {
 public:
  JsonTextReader(std::string_view text, const JsonTextLimits& allowed, const JsonTokenWatch& watch)
      : tokens(text), limits(allowed), watcher(watch) {}

  [[nodiscard]] JsonTextSurvey Read();

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

  [[nodiscard]] JsonTextVerdict Verdict() const;
  [[nodiscard]] bool ExpectsValue() const;
  void BeginValue(bool isObject);
  void BeginMember();
  void EndValue(std::uint64_t nodes);
  void GiveUp();

  JsonTokenReader tokens;
  JsonTextLimits limits;
  const JsonTokenWatch& watcher;
  Expected expected = Expected::kRoot;
  // Whether each open container is an object, outermost first.
  std::vector<char> open;
  std::size_t deepest = 0;
  // The same containers in detail; empty for good once a limit is exceeded beyond remedy.
  std::vector<JsonContainer> containers;
  JsonOpenMembers members;
  bool hopeless = false;
  std::optional<bool> rootIsObject;
  std::uint64_t assignments = 0;
  std::uint64_t memberSteps = 0;
  std::uint64_t rootNodes = 0;
};

JsonTextSurvey JsonTextReader::Read() {
  for (JsonTokenKind token = tokens.Next(); token != JsonTokenKind::kEnd; token = tokens.Next()) {
    if (!Accept(token)) {
      return {};
    }
  }
  const JsonTextVerdict verdict = Verdict();
  return {verdict, verdict == JsonTextVerdict::kParse, rootNodes, deepest};
}

JsonTextVerdict JsonTextReader::Verdict() const {
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
      watcher(token, tokens);
      return AcceptString();
    case JsonTokenKind::kWord:
      watcher(token, tokens);
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
  deepest = std::max(deepest, open.size());
  expected = isObject ? Expected::kNameOrEnd : Expected::kValueOrEnd;
  if (open.size() > limits.depth) {
    GiveUp();
  } else if (!hopeless) {
    containers.push_back({isObject, members.Count()});
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
    members.Drop(containers.back());
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
  members.Touch(tokens, &containers.back(), &memberSteps);
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
  JsonContainer& parent = containers.back();
  parent.nodes += nodes;
  if (parent.isObject) {
    parent.nodes -= std::exchange(members.At(parent.currentMember).nodes, nodes);
  }
}

// Only the structure matters from here on.
void JsonTextReader::GiveUp() {
  hopeless = true;
  containers.clear();
}

// True for nearly every profile: no way to read so few symbols exceeds a limit.
bool HasFewSymbols(std::string_view text, const JsonTextLimits& limits) {
  const auto count = [text](char symbol) {
    return static_cast<std::uint64_t>(std::ranges::count(text, symbol));
  };
  const std::uint64_t opened = count('[') + count('{');
  const std::uint64_t assigned = count('=');
  const std::uint64_t colons = count(':');
  // Every value follows an opening bracket, a comma or an assignment, or it is a root: the first of
  // all or a bracket itself.
  return opened + assigned <= limits.depth &&
         2 * opened + count(',') + assigned + 1 <= limits.nodes &&
         colons * colons <= limits.memberSteps;
}

// json-glib refuses any other text as a whole.
bool IsUtf8(std::string_view text) {
  return g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr) != FALSE;
}

std::string_view WithoutByteOrderMark(std::string_view text) {
  return text.starts_with(kByteOrderMark) ? text.substr(kByteOrderMark.size()) : text;
}

}  // namespace

JsonTextSurvey SurveyJsonText(std::string_view text, const JsonTextLimits& limits,
                              const JsonTokenWatch& watch) {
  JsonTextSurvey survey = JsonTextReader(WithoutByteOrderMark(text), limits, watch).Read();
  if (survey.verdict == JsonTextVerdict::kParse) {
    return survey;
  }
  // json-glib's own verdict counts wherever it cannot come to harm.
  if (HasFewSymbols(text, limits)) {
    survey.verdict = JsonTextVerdict::kParse;
  } else if (!IsUtf8(text)) {
    survey.verdict = JsonTextVerdict::kMalformed;
  }
  return survey;
}

}  // namespace quorvex::linux_service
