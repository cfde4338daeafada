// SPDX-License-Identifier: Apache-2.0
#include "control/json_text.h"

namespace quorvex::control {
namespace {

using JsonNodePtr = std::unique_ptr<JsonNode, ReleaseWith<json_node_unref>>;

}  // namespace

JsonText::JsonText() : builder(json_builder_new()) {
  json_builder_begin_object(builder.get());
}

JsonBuilder* JsonText::Member(const char* name) {
  return json_builder_set_member_name(builder.get(), name);
}

JsonText& JsonText::String(const char* name, const std::string& value) {
  // Names of files and words of a command line may be in no character set at all.
  const GCharPtr valid(g_utf8_make_valid(value.c_str(), static_cast<gssize>(value.size())));
  json_builder_add_string_value(Member(name), valid.get());
  return *this;
}

JsonText& JsonText::StringOrNull(const char* name, const std::string& value) {
  return value.empty() ? Null(name) : String(name, value);
}

JsonText& JsonText::Boolean(const char* name, bool value) {
  json_builder_add_boolean_value(Member(name), value ? TRUE : FALSE);
  return *this;
}

JsonText& JsonText::Integer(const char* name, std::int64_t value) {
  json_builder_add_int_value(Member(name), value);
  return *this;
}

JsonText& JsonText::Null(const char* name) {
  json_builder_add_null_value(Member(name));
  return *this;
}

JsonText& JsonText::OpenObject(const char* name) {
  json_builder_begin_object(Member(name));
  return *this;
}

JsonText& JsonText::CloseObject() {
  json_builder_end_object(builder.get());
  return *this;
}

JsonText& JsonText::OpenArray(const char* name) {
  json_builder_begin_array(Member(name));
  return *this;
}

JsonText& JsonText::OpenElement() {
  json_builder_begin_object(builder.get());
  return *this;
}

JsonText& JsonText::CloseArray() {
  json_builder_end_array(builder.get());
  return *this;
}

std::string JsonText::End() {
  json_builder_end_object(builder.get());
  const JsonNodePtr root(json_builder_get_root(builder.get()));
  return GCharPtr(json_to_string(root.get(), FALSE)).get();
}

}  // namespace quorvex::control
