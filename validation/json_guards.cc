// SPDX-License-Identifier: Apache-2.0
#include "validation/json_guards.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "validation/json_text_guard.h"
#include "validation/rule_text.h"

namespace quorvex::linux_service {
namespace {

constexpr std::uint64_t kMaxDepth = 64;
constexpr std::uint64_t kMaxNodes = 100000;

constexpr const char* kMalformed = "The JSON VPN configuration is malformed.";
constexpr const char* kNotAnObject = "The JSON VPN configuration must be an object.";
constexpr const char* kTooComplex = "The JSON VPN configuration exceeds complexity limits.";

constexpr std::array<const char*, 4> kFileMembers = {"certificate_path", "certificatefile",
                                                     "key_path", "keyfile"};
// Xray's syntax for geographic data in files of the profile's own.
constexpr std::array<std::string_view, 2> kExternalPrefixes = {"ext:", "ext-ip:"};

// Whether `holds` is true of a member's name and value. In no particular order: json-glib finds
// each member anew where it keeps them in order.
template <typename Predicate>
bool AnyMember(JsonObject* object, Predicate holds) {
  JsonObjectIter iterator;
  const char* name = nullptr;
  JsonNode* value = nullptr;
  json_object_iter_init(&iterator, object);
  while (json_object_iter_next(&iterator, &name, &value) != FALSE) {
    if (holds(name, value)) {
      return true;
    }
  }
  return false;
}

template <typename Predicate>
bool AnyElement(JsonArray* array, Predicate holds) {
  for (guint index = 0; index < json_array_get_length(array); ++index) {
    if (holds(json_array_get_element(array, index))) {
      return true;
    }
  }
  return false;
}

template <typename Predicate>
bool AnyChild(JsonNode* node, Predicate holds) {
  if (JSON_NODE_HOLDS_OBJECT(node)) {
    return AnyMember(json_node_get_object(node),
                     [&holds](const char*, JsonNode* value) { return holds(value); });
  }
  return JSON_NODE_HOLDS_ARRAY(node) && AnyElement(json_node_get_array(node), holds);
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

bool NamesFile(const char* name) {
  return std::ranges::any_of(
      kFileMembers, [name](const char* member) { return g_ascii_strcasecmp(name, member) == 0; });
}

bool IsExternalReference(const char* text) {
  return std::ranges::any_of(kExternalPrefixes, [text](std::string_view prefix) {
    return g_ascii_strncasecmp(text, prefix.data(), prefix.size()) == 0;
  });
}

void NoteForbiddenReferences(JsonNode* node, ForbiddenReferences* found);

void NoteMembers(JsonObject* object, ForbiddenReferences* found) {
  bool isLocal = false;
  bool hasPath = false;
  AnyMember(object, [&](const char* name, JsonNode* value) {
    const char* text = StringOf(value);
    isLocal |=
        text != nullptr && std::strcmp(name, "type") == 0 && g_ascii_strcasecmp(text, "local") == 0;
    hasPath |= text != nullptr && *text != '\0' && std::strcmp(name, "path") == 0;
    found->file |= NamesFile(name) && IsNonEmptyStringOrArray(value);
    NoteForbiddenReferences(value, found);
    return false;
  });
  // A local rule set.
  found->external |= isLocal && hasPath;
}

void NoteForbiddenReferences(JsonNode* node, ForbiddenReferences* found) {
  if (JSON_NODE_HOLDS_OBJECT(node)) {
    NoteMembers(json_node_get_object(node), found);
  } else if (JSON_NODE_HOLDS_ARRAY(node)) {
    AnyElement(json_node_get_array(node), [found](JsonNode* element) {
      NoteForbiddenReferences(element, found);
      return false;
    });
  } else if (const char* text = StringOf(node); text != nullptr) {
    found->external |= IsExternalReference(text);
  }
}

// The sentence for a text that json-glib must not even parse; null for all others.
const char* ComplaintAboutText(const std::string& rawConfig) {
  switch (JudgeJsonText(rawConfig)) {
    case JsonTextVerdict::kMalformed:
      return kMalformed;
    case JsonTextVerdict::kNotAnObject:
      return kNotAnObject;
    case JsonTextVerdict::kTooComplex:
      return kTooComplex;
    case JsonTextVerdict::kParse:
      break;
  }
  return nullptr;
}

}  // namespace

ValidationResult ParseJsonObject(const std::string& rawConfig, GObjectPtr<JsonParser>* parser,
                                 JsonObject** root) {
  if (const char* complaint = ComplaintAboutText(rawConfig); complaint != nullptr) {
    return Invalid(complaint);
  }
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
  return !AnyChild(
      node, [depth, count](JsonNode* child) { return !JsonWithinLimits(child, depth + 1, count); });
}

ForbiddenReferences FindForbiddenReferences(JsonNode* node) {
  ForbiddenReferences found;
  if (node != nullptr) {
    NoteForbiddenReferences(node, &found);
  }
  return found;
}

bool JsonMemberHasNonEmptyString(JsonObject* object, const char* name) {
  const char* text = StringMember(object, name);
  return text != nullptr && *text != '\0';
}

bool JsonStringEquals(JsonObject* object, const char* name, const char* expected) {
  const char* text = StringMember(object, name);
  return text != nullptr && g_ascii_strcasecmp(text, expected) == 0;
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
