// SPDX-License-Identifier: Apache-2.0
//
// How the JSON engines read a tree. Both are written in Go, whose reader takes any member whose
// name folds to an option's for that option: "Log" is "log", and so is a name with U+017F in place
// of an "s". The rules decide on names as they are written, so what an engine would read beyond
// them is found here: by a table for each kind of object, that says which options the engine knows
// there and what becomes of them.
#pragma once

#include <json-glib/json-glib.h>

#include <span>
#include <string_view>

namespace quorvex::linux_service {

struct JsonOptionTable;

enum class JsonOptionKind : char {
  // A value or a list of values that the engine only compares, sends or counts.
  kPlain,
  // Nothing in it is read: the service replaces or removes it, or its names are the user's own.
  kFree,
  // Refused unless it says nothing: null, false, 0 or empty.
  kForbidden,
  // Refused when it is a text, unless empty; the engine itself refuses every other kind.
  kForbiddenText,
  // An object of options; any other kind of value the engine takes plainly or refuses.
  kObject,
  // The same, or an array of such objects.
  kObjects,
  // Refused if the option's own judge says so.
  kJudged,
};

// What the engine makes of one member. The name is plain ASCII, spelled as the engine documents it.
struct JsonOption {
  std::string_view name;
  JsonOptionKind kind = JsonOptionKind::kPlain;
  // Of kObject and kObjects.
  const JsonOptionTable* table = nullptr;
  // Why the option is refused; null for the table's sentence.
  const char* sentence = nullptr;
  // Of kJudged: the sentence that refuses the value, or null.
  const char* (*judge)(JsonNode* value) = nullptr;
};

// What an object's selector chooses: more options, or a refusal, with a sentence, if there is no
// table.
struct JsonVariant {
  // In lower case; empty for an object without the selector.
  std::string_view selected;
  const JsonOptionTable* table = nullptr;
  const char* sentence = nullptr;
};

// The options of one kind of object.
struct JsonOptionTable {
  // For a name that is an option's in another spelling, and for a foreign member that is not inert;
  // every table has one.
  const char* sentence = nullptr;
  std::span<const JsonOption> options = {};
  // Options that several kinds of objects share.
  std::span<const JsonOptionTable* const> parts = {};
  // The member whose text, in any letter case, chooses a variant; none if empty. With a text that
  // no variant has, the options of all variants are judged: the engine refuses such an object.
  std::string_view selector = {};
  std::span<const JsonVariant> variants = {};
};

constexpr JsonOption Plain(std::string_view name) {
  return {name};
}
constexpr JsonOption Free(std::string_view name) {
  return {name, JsonOptionKind::kFree};
}
constexpr JsonOption Forbidden(std::string_view name, const char* sentence) {
  return {name, JsonOptionKind::kForbidden, nullptr, sentence};
}
constexpr JsonOption ForbiddenText(std::string_view name, const char* sentence) {
  return {name, JsonOptionKind::kForbiddenText, nullptr, sentence};
}
// `sentence` refuses the name in another spelling.
constexpr JsonOption Object(std::string_view name, const JsonOptionTable& table,
                            const char* sentence = nullptr) {
  return {name, JsonOptionKind::kObject, &table, sentence};
}
constexpr JsonOption Objects(std::string_view name, const JsonOptionTable& table,
                             const char* sentence = nullptr) {
  return {name, JsonOptionKind::kObjects, &table, sentence};
}
constexpr JsonOption Judged(std::string_view name, const char* (*judge)(JsonNode* value),
                            const char* sentence = nullptr) {
  return {name, JsonOptionKind::kJudged, nullptr, sentence, judge};
}

// Whether Go takes `name` for the option `option`, which is plain ASCII.
[[nodiscard]] bool FoldsTo(std::string_view name, std::string_view option);

// The value's text; null if it is no string.
[[nodiscard]] const char* JsonTextOf(JsonNode* value);

// Whether the value sets nothing: null, false, 0, an empty text, array or object.
[[nodiscard]] bool IsEmptyValue(JsonNode* value);

// The sentence with which the object is refused, read by the table; null if it passes. A member
// passes if the table allows it in exactly its spelling. One that no option's name folds to is not
// read by the engine; it passes if it is inert all the same, so that a later engine that knows it
// finds nothing in it: below it no text has a slash, and no name that holds anything speaks of
// files, programs, listeners or addresses. `object` must be within the limits of JsonWithinLimits.
[[nodiscard]] const char* ComplaintAboutOptions(JsonObject* object, const JsonOptionTable& table);

}  // namespace quorvex::linux_service
