// SPDX-License-Identifier: Apache-2.0
#include "validation/json_engine_reading.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "validation/json_guards.h"
#include "validation/rule_text.h"

namespace quorvex::linux_service {
namespace {

// The only characters outside ASCII whose folded form is an ASCII letter: a long s and the sign of
// the kelvin.
struct FoldedLetter {
  std::string_view bytes;
  char letter;
};
constexpr std::array<FoldedLetter, 2> kFoldedLetters = {{{"\xC5\xBF", 's'}, {"\xE2\x84\xAA", 'k'}}};

// Parts of names that speak of something outside the tunnel.
constexpr std::array<std::string_view, 21> kSpeakingWords = {
    "path", "file", "dir",     "listen",  "bind",   "port",   "socket",
    "pipe", "exec", "command", "program", "plugin", "script", "output",
    "url",  "uri",  "netns",   "store",   "cache",  "state",  "download"};

// Takes the first letter off `name` as Go folds it: an ASCII letter in lower case, a byte
// otherwise.
char TakeFolded(std::string_view* name) {
  for (const FoldedLetter& folded : kFoldedLetters) {
    if (name->starts_with(folded.bytes)) {
      name->remove_prefix(folded.bytes.size());
      return folded.letter;
    }
  }
  const char letter = g_ascii_tolower(name->front());
  name->remove_prefix(1);
  return letter;
}

bool IsEmptyScalar(JsonNode* value) {
  switch (json_node_get_value_type(value)) {
    case G_TYPE_STRING:
      return *json_node_get_string(value) == '\0';
    case G_TYPE_BOOLEAN:
      return json_node_get_boolean(value) == FALSE;
    case G_TYPE_INT64:
      return json_node_get_int(value) == 0;
    case G_TYPE_DOUBLE:
      return json_node_get_double(value) == 0.0;
    default:
      return false;
  }
}

bool Speaks(std::string_view name) {
  const std::string lowered = LowercaseAscii(name);
  return std::ranges::any_of(kSpeakingWords, [&lowered](std::string_view word) {
    return lowered.find(word) != std::string::npos;
  });
}

// The first sentence that `judge` finds for a member's name and value; null if none.
template <typename Judge>
const char* FirstOfMembers(JsonObject* object, Judge judge) {
  JsonObjectIter iterator;
  const char* name = nullptr;
  JsonNode* value = nullptr;
  json_object_iter_init(&iterator, object);
  while (json_object_iter_next(&iterator, &name, &value) != FALSE) {
    if (const char* sentence = judge(name, value); sentence != nullptr) {
      return sentence;
    }
  }
  return nullptr;
}

template <typename Judge>
const char* FirstOfElements(JsonArray* array, Judge judge) {
  for (guint index = 0; index < json_array_get_length(array); ++index) {
    if (const char* sentence = judge(json_array_get_element(array, index)); sentence != nullptr) {
      return sentence;
    }
  }
  return nullptr;
}

const char* ComplaintAboutForeignValue(JsonNode* value, const char* sentence);

const char* ComplaintAboutForeignMember(std::string_view name, JsonNode* value,
                                        const char* sentence) {
  if (Speaks(name) && !IsEmptyValue(value)) {
    return sentence;
  }
  return ComplaintAboutForeignValue(value, sentence);
}

const char* ComplaintAboutForeignValue(JsonNode* value, const char* sentence) {
  if (const char* text = JsonTextOf(value); text != nullptr) {
    return std::string_view(text).find('/') == std::string_view::npos ? nullptr : sentence;
  }
  if (JSON_NODE_HOLDS_OBJECT(value)) {
    return FirstOfMembers(json_node_get_object(value),
                          [sentence](const char* name, JsonNode* member) {
                            return ComplaintAboutForeignMember(name, member, sentence);
                          });
  }
  if (JSON_NODE_HOLDS_ARRAY(value)) {
    return FirstOfElements(json_node_get_array(value), [sentence](JsonNode* element) {
      return ComplaintAboutForeignValue(element, sentence);
    });
  }
  return nullptr;
}

const char* ComplaintAboutElements(JsonNode* value, const JsonOptionTable& table) {
  return FirstOfElements(json_node_get_array(value), [&table](JsonNode* element) -> const char* {
    return JSON_NODE_HOLDS_OBJECT(element)
               ? ComplaintAboutOptions(json_node_get_object(element), table)
               : nullptr;
  });
}

// An option and the sentence that refuses it.
struct FoundOption {
  const JsonOption* option = nullptr;
  const char* sentence = nullptr;
};

const char* ComplaintAboutValue(const FoundOption& found, JsonNode* value) {
  switch (found.option->kind) {
    case JsonOptionKind::kPlain:
    case JsonOptionKind::kFree:
      return nullptr;
    case JsonOptionKind::kForbidden:
      return IsEmptyValue(value) ? nullptr : found.sentence;
    case JsonOptionKind::kForbiddenText:
      return JsonTextOf(value) == nullptr || IsEmptyValue(value) ? nullptr : found.sentence;
    case JsonOptionKind::kJudged:
      return found.option->judge(value);
    case JsonOptionKind::kObject:
    case JsonOptionKind::kObjects:
      break;
  }
  if (JSON_NODE_HOLDS_OBJECT(value)) {
    return ComplaintAboutOptions(json_node_get_object(value), *found.option->table);
  }
  if (found.option->kind == JsonOptionKind::kObjects && JSON_NODE_HOLDS_ARRAY(value)) {
    return ComplaintAboutElements(value, *found.option->table);
  }
  return nullptr;
}

// Reads one object by its table.
class OptionReader {
 public:
  explicit OptionReader(JsonObject* read) : object(read) {}

  [[nodiscard]] const char* Complaint(const JsonOptionTable& table) {
    if (const char* sentence = Gather(table); sentence != nullptr) {
      return sentence;
    }
    return FirstOfMembers(object, [this, &table](const char* name, JsonNode* value) {
      return ComplaintAboutMember(name, value, table.sentence);
    });
  }

 private:
  // Collects the tables that apply to the object; returns the refusal of a variant chosen.
  [[nodiscard]] const char* Gather(const JsonOptionTable& table) {
    tables.push_back(&table);
    for (const JsonOptionTable* part : table.parts) {
      if (const char* sentence = Gather(*part); sentence != nullptr) {
        return sentence;
      }
    }
    return table.selector.empty() ? nullptr : GatherVariants(table);
  }

  [[nodiscard]] const char* GatherVariants(const JsonOptionTable& table) {
    JsonNode* selector = json_object_get_member(object, table.selector.data());
    const char* text = selector == nullptr ? nullptr : JsonTextOf(selector);
    const char* selected = text == nullptr ? "" : text;
    const auto found = std::ranges::find_if(table.variants, [selected](const JsonVariant& variant) {
      return g_ascii_strcasecmp(variant.selected.data(), selected) == 0;
    });
    if (found != table.variants.end()) {
      return found->table == nullptr ? found->sentence : Gather(*found->table);
    }
    for (const JsonVariant& variant : table.variants) {
      if (variant.table != nullptr) {
        tables.push_back(variant.table);
        tables.insert(tables.end(), variant.table->parts.begin(), variant.table->parts.end());
      }
    }
    return nullptr;
  }

  template <typename Matches>
  [[nodiscard]] FoundOption Find(Matches matches) const {
    for (const JsonOptionTable* table : tables) {
      const auto found = std::ranges::find_if(table->options, matches, &JsonOption::name);
      if (found != table->options.end()) {
        return {&*found, found->sentence != nullptr ? found->sentence : table->sentence};
      }
    }
    return {};
  }

  [[nodiscard]] const char* ComplaintAboutMember(std::string_view name, JsonNode* value,
                                                 const char* sentence) const {
    const FoundOption exact = Find([name](std::string_view option) { return name == option; });
    if (exact.option != nullptr) {
      return ComplaintAboutValue(exact, value);
    }
    const FoundOption folded =
        Find([name](std::string_view option) { return FoldsTo(name, option); });
    return folded.option != nullptr ? folded.sentence
                                    : ComplaintAboutForeignMember(name, value, sentence);
  }

  JsonObject* object;
  std::vector<const JsonOptionTable*> tables;
};

}  // namespace

bool FoldsTo(std::string_view name, std::string_view option) {
  for (const char letter : option) {
    if (name.empty() || TakeFolded(&name) != g_ascii_tolower(letter)) {
      return false;
    }
  }
  return name.empty();
}

const char* JsonTextOf(JsonNode* value) {
  if (!JSON_NODE_HOLDS_VALUE(value) || json_node_get_value_type(value) != G_TYPE_STRING) {
    return nullptr;
  }
  return json_node_get_string(value);
}

bool IsEmptyValue(JsonNode* value) {
  if (JSON_NODE_HOLDS_OBJECT(value)) {
    return json_object_get_size(json_node_get_object(value)) == 0;
  }
  if (JSON_NODE_HOLDS_ARRAY(value)) {
    return json_array_get_length(json_node_get_array(value)) == 0;
  }
  return JSON_NODE_HOLDS_NULL(value) || IsEmptyScalar(value);
}

const char* ComplaintAboutOptions(JsonObject* object, const JsonOptionTable& table) {
  return OptionReader(object).Complaint(table);
}

}  // namespace quorvex::linux_service
