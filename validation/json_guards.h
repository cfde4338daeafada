// SPDX-License-Identifier: Apache-2.0
//
// What the rules of both JSON engines share: bounded parsing, and searches of the whole tree.
#pragma once

#include <json-glib/json-glib.h>

#include <cstdint>
#include <string>

#include "runtime/glib_ptr.h"
#include "validation/profile_validation.h"

namespace quorvex::linux_service {

inline constexpr char kJsonMalformed[] = "The JSON VPN configuration is malformed.";

// A JSON profile, parsed, and what reading its tokens has told beside that.
struct JsonProfile {
  GObjectPtr<JsonParser> parser;
  // An object, borrowed from the parser.
  JsonNode* root = nullptr;
  // Whether the text has no word that a forbidden reference cannot do without.
  bool lacksReferences = false;
  // Whether SurvivesRewriting holds; if not, it may hold all the same.
  bool survivesRewriting = false;
};

// Parses a JSON object of bounded depth and size.
[[nodiscard]] ValidationResult ParseJsonProfile(const std::string& rawConfig, JsonProfile* profile);

// The same for who needs the tree alone. On success `parser` owns the tree and `root` is
// borrowed from it.
[[nodiscard]] ValidationResult ParseJsonObject(const std::string& rawConfig,
                                               GObjectPtr<JsonParser>* parser, JsonObject** root);

// Whether the tree below `node`, which lies at `depth`, is at most 64 levels deep and `count`,
// which counts every node on the way, stays within 100,000.
[[nodiscard]] bool JsonWithinLimits(JsonNode* node, std::uint64_t depth, std::uint64_t* count);

// What a tree must not hold, found in one walk, since a tree may be large.
struct ForbiddenReferences {
  // A member anywhere names a private key or certificate file.
  bool file = false;
  // Something makes an engine load a file or a list of its own.
  bool external = false;
};

// All is false for a null node.
[[nodiscard]] ForbiddenReferences FindForbiddenReferences(JsonNode* node);

// Of the profile's root; walks the tree only where the text gives a reason to.
[[nodiscard]] ForbiddenReferences FindForbiddenReferences(const JsonProfile& profile);

// All three are false for a null object and a missing member. The comparison ignores ASCII case.
[[nodiscard]] bool JsonMemberHasNonEmptyString(JsonObject* object, const char* name);
[[nodiscard]] bool JsonStringEquals(JsonObject* object, const char* name, const char* expected);
[[nodiscard]] bool JsonBooleanIsTrue(JsonObject* object, const char* name);

// The member as a container; null when it is missing or of another kind.
[[nodiscard]] JsonObject* JsonObjectMember(JsonObject* object, const char* name);
[[nodiscard]] JsonArray* JsonArrayMember(JsonObject* object, const char* name);

// The element as an object; null when it is of another kind.
[[nodiscard]] JsonObject* JsonObjectElement(JsonArray* array, guint index);

// The member's text in ASCII lower case; empty when it is no string.
[[nodiscard]] std::string JsonLowercaseString(JsonObject* object, const char* name);

}  // namespace quorvex::linux_service
