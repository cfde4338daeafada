// SPDX-License-Identifier: Apache-2.0
#include "validation/json_guards.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "validation/json_rewrite_guard.h"
#include "validation/json_text_guard.h"
#include "validation/rule_text.h"

namespace quorvex::linux_service {
namespace {

constexpr std::uint64_t kMaxDepth = 64;
constexpr std::uint64_t kMaxNodes = 100000;

constexpr const char* kNotAnObject = "The JSON VPN configuration must be an object.";
constexpr const char* kTooComplex = "The JSON VPN configuration exceeds complexity limits.";

constexpr std::array<const char*, 4> kFileMembers = {"certificate_path", "certificatefile",
                                                     "key_path", "keyfile"};
// Xray's syntax for geographic data in files of the profile's own.
constexpr std::array<std::string_view, 2> kExternalPrefixes = {"ext:", "ext-ip:"};
// The member that tells a local rule set, and its value.
constexpr const char* kTypeName = "type";
constexpr const char* kLocalType = "local";

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
    isLocal |= text != nullptr && std::strcmp(name, kTypeName) == 0 &&
               g_ascii_strcasecmp(text, kLocalType) == 0;
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

// Looks in the tokens of a text for what the tree would have to be searched for. A tree says
// nothing that its text does not say, and most texts say nothing of the kind.
class TokenNotes {
 public:
  void Note(JsonTokenKind kind, const JsonTokenReader& tokens) {
    allSurvive = allSurvive && TokenSurvivesRewriting(kind, tokens);
    if (kind == JsonTokenKind::kString) {
      NoteString(tokens.Text());
    }
  }
  [[nodiscard]] bool AllSurvive() const { return allSurvive; }
  [[nodiscard]] bool LackReferences() const { return !mayRefer; }

 private:
  void NoteString(std::string_view text) {
    mayRefer = mayRefer || MayRefer(text);
    isBehindType = text == kTypeName;
  }

  // A local set's type stands right behind its name.
  [[nodiscard]] bool MayRefer(std::string_view text) const {
    return (isBehindType && EqualsIgnoringCase(text, kLocalType)) ||
           std::ranges::any_of(kExternalPrefixes,
                               [text](std::string_view prefix) {
                                 return EqualsIgnoringCase(text.substr(0, prefix.size()), prefix);
                               }) ||
           std::ranges::any_of(kFileMembers, [text](std::string_view member) {
             return EqualsIgnoringCase(text, member);
           });
  }

  bool allSurvive = true;
  bool mayRefer = false;
  bool isBehindType = false;
};

const char* SentenceOf(JsonTextVerdict verdict) {
  switch (verdict) {
    case JsonTextVerdict::kMalformed:
      return kJsonMalformed;
    case JsonTextVerdict::kNotAnObject:
      return kNotAnObject;
    case JsonTextVerdict::kTooComplex:
      return kTooComplex;
    case JsonTextVerdict::kParse:
      break;
  }
  return nullptr;
}

// Reads the text, without parsing it, and notes in `profile` what it says. The sentence for a text
// that json-glib must not even parse; null for all others.
const char* ComplaintAboutText(const std::string& rawConfig, JsonProfile* profile,
                               JsonTextSurvey* survey) {
  TokenNotes notes;
  *survey = SurveyJsonText(rawConfig, {},
                           [&notes](auto kind, const auto& tokens) { notes.Note(kind, tokens); });
  profile->lacksReferences = survey->isComplete && notes.LackReferences();
  profile->survivesRewriting =
      survey->isComplete && notes.AllSurvive() && BytesSurviveRewriting(rawConfig);
  return SentenceOf(survey->verdict);
}

// The tree is walked only if its text leaves a doubt.
bool TreeWithinLimits(JsonNode* root, const JsonTextSurvey& survey) {
  if (survey.isComplete && survey.depth <= kMaxDepth && survey.nodes <= kMaxNodes) {
    return true;
  }
  std::uint64_t count = 0;
  return JsonWithinLimits(root, 0, &count);
}

}  // namespace

ValidationResult ParseJsonProfile(const std::string& rawConfig, JsonProfile* profile) {
  JsonProfile loaded;
  JsonTextSurvey survey;
  if (const char* complaint = ComplaintAboutText(rawConfig, &loaded, &survey);
      complaint != nullptr) {
    return Invalid(complaint);
  }
  loaded.parser.reset(json_parser_new());
  if (json_parser_load_from_data(loaded.parser.get(), rawConfig.data(),
                                 static_cast<gssize>(rawConfig.size()), nullptr) == FALSE) {
    return Invalid(kJsonMalformed);
  }
  loaded.root = json_parser_get_root(loaded.parser.get());
  if (loaded.root == nullptr || !JSON_NODE_HOLDS_OBJECT(loaded.root)) {
    return Invalid(kNotAnObject);
  }
  if (!TreeWithinLimits(loaded.root, survey)) {
    return Invalid(kTooComplex);
  }
  *profile = std::move(loaded);
  return Valid();
}

ValidationResult ParseJsonObject(const std::string& rawConfig, GObjectPtr<JsonParser>* parser,
                                 JsonObject** root) {
  JsonProfile profile;
  ValidationResult parsed = ParseJsonProfile(rawConfig, &profile);
  if (parsed.valid) {
    *root = json_node_get_object(profile.root);
    *parser = std::move(profile.parser);
  }
  return parsed;
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

ForbiddenReferences FindForbiddenReferences(const JsonProfile& profile) {
  return profile.lacksReferences ? ForbiddenReferences() : FindForbiddenReferences(profile.root);
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
