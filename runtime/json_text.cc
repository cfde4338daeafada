// SPDX-License-Identifier: Apache-2.0
#include "runtime/json_text.h"

#include <cstring>

#include "validation/json_guards.h"

namespace quorvex::linux_service {
namespace {

// Overwrites the text before it is freed: it is the whole configuration.
void WipeAndFree(GString* text) {
  explicit_bzero(text->str, text->allocated_len);
  g_string_free(text, TRUE);
}

using SecretTextPtr = std::unique_ptr<GString, ReleaseWith<WipeAndFree>>;

bool IsString(JsonObject* object, const char* name) {
  JsonNode* node = json_object_get_member(object, name);
  return node != nullptr && JSON_NODE_HOLDS_VALUE(node) &&
         json_node_get_value_type(node) == G_TYPE_STRING;
}

}  // namespace

GObjectPtr<JsonParser> ParseJson(const std::string& text) {
  GObjectPtr<JsonParser> parser(json_parser_new());
  if (json_parser_load_from_data(parser.get(), text.data(), static_cast<gssize>(text.size()),
                                 nullptr) == FALSE) {
    return nullptr;
  }
  return parser;
}

JsonObject* RootObject(JsonParser* parser) {
  JsonNode* root = json_parser_get_root(parser);
  return root != nullptr && JSON_NODE_HOLDS_OBJECT(root) ? json_node_get_object(root) : nullptr;
}

JsonNode* OnlyElement(JsonObject* parent, const char* name) {
  JsonArray* array = JsonArrayMember(parent, name);
  return array != nullptr && json_array_get_length(array) == 1 ? json_array_get_element(array, 0)
                                                               : nullptr;
}

JsonObject* ObjectMemberOrNew(JsonObject* parent, const char* name) {
  if (JsonObject* object = JsonObjectMember(parent, name); object != nullptr) {
    return object;
  }
  JsonObject* object = json_object_new();
  json_object_set_object_member(parent, name, object);
  return object;
}

JsonArray* NewStringArray(const std::vector<std::string>& values) {
  JsonArray* array = json_array_new();
  for (const std::string& value : values) {
    json_array_add_string_element(array, value.c_str());
  }
  return array;
}

void SetStrings(JsonObject* object, const char* name, std::initializer_list<const char*> values) {
  json_object_set_array_member(object, name, NewStringArray({values.begin(), values.end()}));
}

std::string StringMemberText(JsonObject* object, const char* name) {
  return IsString(object, name) ? json_object_get_string_member(object, name) : "";
}

const char* FirstOutboundTag(JsonObject* root, const char* kindMember,
                             const std::function<bool(const std::string&)>& isWanted) {
  JsonArray* outbounds = JsonArrayMember(root, "outbounds");
  const guint count = outbounds == nullptr ? 0 : json_array_get_length(outbounds);
  for (guint index = 0; index < count; ++index) {
    JsonObject* outbound = JsonObjectElement(outbounds, index);
    if (outbound != nullptr && IsString(outbound, kindMember) &&
        JsonMemberHasNonEmptyString(outbound, "tag") &&
        isWanted(JsonLowercaseString(outbound, kindMember))) {
      return json_object_get_string_member(outbound, "tag");
    }
  }
  return nullptr;
}

bool WriteJson(JsonNode* root, std::size_t sizeHint, std::string* text) {
  const GObjectPtr<JsonGenerator> generator(json_generator_new());
  json_generator_set_pretty(generator.get(), FALSE);
  json_generator_set_root(generator.get(), root);
  const SecretTextPtr written(g_string_sized_new(sizeHint));
  json_generator_to_gstring(generator.get(), written.get());
  text->assign(written->str, written->len);
  return !text->empty();
}

}  // namespace quorvex::linux_service
