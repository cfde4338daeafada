// SPDX-License-Identifier: Apache-2.0
//
// What the rewriting of both JSON engines' configurations shares: reading, the steps on the tree,
// and writing. Nothing here keeps a copy of the configuration.
#pragma once

#include <json-glib/json-glib.h>

#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "runtime/glib_ptr.h"
#include "validation/json_guards.h"

namespace quorvex::linux_service {

// The parsed text; null when it is no JSON. A text without any value gives a parser without root.
[[nodiscard]] GObjectPtr<JsonParser> ParseJson(const std::string& text);

// The root as an object, borrowed from the parser; null when there is none.
[[nodiscard]] JsonObject* RootObject(JsonParser* parser);

// The only element of the array `name`; null when the member is missing, no array or of another
// length.
[[nodiscard]] JsonNode* OnlyElement(JsonObject* parent, const char* name);

// The member as an object; what is missing or of another kind is replaced by a new, empty one.
[[nodiscard]] JsonObject* ObjectMemberOrNew(JsonObject* parent, const char* name);

void SetStrings(JsonObject* object, const char* name, std::initializer_list<const char*> values);

[[nodiscard]] JsonArray* NewStringArray(const std::vector<std::string>& values);

// The member's text; empty when it is no string.
[[nodiscard]] std::string StringMemberText(JsonObject* object, const char* name);

// Calls `visit` with each element that is an object; null has none.
template <typename Visitor>
void ForEachObject(JsonArray* array, Visitor visit) {
  for (guint index = 0; array != nullptr && index < json_array_get_length(array); ++index) {
    if (JsonObject* element = JsonObjectElement(array, index); element != nullptr) {
      visit(element);
    }
  }
}

// The tag of the first of the root's outbounds that has one and whose `kindMember`, in lower case,
// is wanted; borrowed from the tree. Null when there is none.
[[nodiscard]] const char* FirstOutboundTag(JsonObject* root, const char* kindMember,
                                           const std::function<bool(const std::string&)>& isWanted);

// Writes the tree below `root` into `text`, compactly, in one allocation of `sizeHint` bytes if
// they suffice. False when json-glib writes nothing.
[[nodiscard]] bool WriteJson(JsonNode* root, std::size_t sizeHint, std::string* text);

}  // namespace quorvex::linux_service
