// SPDX-License-Identifier: Apache-2.0
#include "validation/json_guards.h"

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>

#include "validation/rule_text.h"

namespace quorvex::linux_service {
namespace {

constexpr std::uint64_t kMaxDepth = 64;
constexpr std::uint64_t kMaxNodes = 100000;

constexpr char kMalformed[] = "The JSON VPN configuration is malformed.";
constexpr char kNotAnObject[] = "The JSON VPN configuration must be an object.";
constexpr char kTooComplex[] = "The JSON VPN configuration exceeds complexity limits.";

constexpr std::array<std::string_view, 4> kFileMembers = {"certificate_path", "certificatefile",
                                                          "key_path", "keyfile"};
// Xray's syntax for geographic data in files of the profile's own.
constexpr std::array<std::string_view, 2> kExternalPrefixes = {"ext:", "ext-ip:"};

// The containers' own lists, which json-glib hands out to be freed by the caller.
using ListPtr = std::unique_ptr<GList, ReleaseWith<g_list_free>>;

template <typename Predicate>
bool AllChildren(JsonNode* node, Predicate holds) {
  ListPtr children;
  if (JSON_NODE_HOLDS_OBJECT(node)) {
    children.reset(json_object_get_values(json_node_get_object(node)));
  } else if (JSON_NODE_HOLDS_ARRAY(node)) {
    children.reset(json_array_get_elements(json_node_get_array(node)));
  }
  for (const GList* entry = children.get(); entry != nullptr; entry = entry->next) {
    if (!holds(static_cast<JsonNode*>(entry->data))) {
      return false;
    }
  }
  return true;
}

template <typename Predicate>
bool AnyChild(JsonNode* node, Predicate holds) {
  return !AllChildren(node, [&holds](JsonNode* child) { return !holds(child); });
}

// Null when the node is no string.
const char* StringOf(JsonNode* node) {
  if (node == nullptr || !JSON_NODE_HOLDS_VALUE(node) ||
      json_node_get_value_type(node) != G_TYPE_STRING) {
    return nullptr;
  }
  return json_node_get_string(node);
}

const char* StringMember(JsonObject* object, const char* name) {
  return object == nullptr ? nullptr : StringOf(json_object_get_member(object, name));
}

bool IsNonEmptyStringOrArray(JsonNode* node) {
  if (JSON_NODE_HOLDS_ARRAY(node)) {
    return json_array_get_length(json_node_get_array(node)) > 0;
  }
  const char* text = StringOf(node);
  return text != nullptr && *text != '\0';
}

bool MemberIsForbiddenFile(const char* name, JsonNode* value) {
  const bool named = std::ranges::find(kFileMembers, LowercaseAscii(name)) != kFileMembers.end();
  return (named && IsNonEmptyStringOrArray(value)) || ContainsForbiddenFileMember(value);
}

bool ObjectHasForbiddenFileMember(JsonObject* object) {
  const ListPtr names(json_object_get_members(object));
  for (const GList* entry = names.get(); entry != nullptr; entry = entry->next) {
    const auto* name = static_cast<const char*>(entry->data);
    if (MemberIsForbiddenFile(name, json_object_get_member(object, name))) {
      return true;
    }
  }
  return false;
}

bool IsLocalRuleSet(JsonNode* node) {
  if (!JSON_NODE_HOLDS_OBJECT(node)) {
    return false;
  }
  JsonObject* object = json_node_get_object(node);
  return JsonStringEquals(object, "type", "local") && JsonMemberHasNonEmptyString(object, "path");
}

bool IsExternalReference(const char* text) {
  const std::string lowered = LowercaseAscii(text);
  return std::ranges::any_of(kExternalPrefixes, [&lowered](std::string_view prefix) {
    return lowered.starts_with(prefix);
  });
}

}  // namespace

ValidationResult ParseJsonObject(const std::string& rawConfig, GObjectPtr<JsonParser>* parser,
                                 JsonObject** root) {
  GObjectPtr<JsonParser> loaded(json_parser_new());
  if (json_parser_load_from_data(loaded.get(), rawConfig.data(),
                                 static_cast<gssize>(rawConfig.size()), nullptr) == FALSE) {
    return Invalid(kMalformed);
  }
  JsonNode* node = json_parser_get_root(loaded.get());
  if (node == nullptr || !JSON_NODE_HOLDS_OBJECT(node)) {
    return Invalid(kNotAnObject);
  }
  std::uint64_t count = 0;
  if (!JsonWithinLimits(node, 0, &count)) {
    return Invalid(kTooComplex);
  }
  *root = json_node_get_object(node);
  *parser = std::move(loaded);
  return Valid();
}

bool JsonWithinLimits(JsonNode* node, std::uint64_t depth, std::uint64_t* count) {
  if (node == nullptr || depth > kMaxDepth || ++*count > kMaxNodes) {
    return false;
  }
  return AllChildren(
      node, [depth, count](JsonNode* child) { return JsonWithinLimits(child, depth + 1, count); });
}

bool ContainsForbiddenFileMember(JsonNode* node) {
  if (node != nullptr && JSON_NODE_HOLDS_OBJECT(node)) {
    return ObjectHasForbiddenFileMember(json_node_get_object(node));
  }
  return node != nullptr && AnyChild(node, ContainsForbiddenFileMember);
}

bool ContainsForbiddenExternalResource(JsonNode* node) {
  if (node == nullptr) {
    return false;
  }
  if (const char* text = StringOf(node); text != nullptr) {
    return IsExternalReference(text);
  }
  return IsLocalRuleSet(node) || AnyChild(node, ContainsForbiddenExternalResource);
}

bool JsonMemberHasNonEmptyString(JsonObject* object, const char* name) {
  const char* text = StringMember(object, name);
  return text != nullptr && *text != '\0';
}

bool JsonStringEquals(JsonObject* object, const char* name, const char* expected) {
  const char* text = StringMember(object, name);
  return text != nullptr && LowercaseAscii(text) == LowercaseAscii(expected);
}

bool JsonBooleanIsTrue(JsonObject* object, const char* name) {
  JsonNode* node = object == nullptr ? nullptr : json_object_get_member(object, name);
  return node != nullptr && JSON_NODE_HOLDS_VALUE(node) &&
         json_node_get_value_type(node) == G_TYPE_BOOLEAN && json_node_get_boolean(node) != FALSE;
}

JsonObject* JsonObjectMember(JsonObject* object, const char* name) {
  JsonNode* node = json_object_get_member(object, name);
  return node != nullptr && JSON_NODE_HOLDS_OBJECT(node) ? json_node_get_object(node) : nullptr;
}

JsonArray* JsonArrayMember(JsonObject* object, const char* name) {
  JsonNode* node = json_object_get_member(object, name);
  return node != nullptr && JSON_NODE_HOLDS_ARRAY(node) ? json_node_get_array(node) : nullptr;
}

JsonObject* JsonObjectElement(JsonArray* array, guint index) {
  JsonNode* node = json_array_get_element(array, index);
  return JSON_NODE_HOLDS_OBJECT(node) ? json_node_get_object(node) : nullptr;
}

std::string JsonLowercaseString(JsonObject* object, const char* name) {
  const char* text = StringMember(object, name);
  return text == nullptr ? std::string() : LowercaseAscii(text);
}

}  // namespace quorvex::linux_service
