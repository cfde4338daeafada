// SPDX-License-Identifier: Apache-2.0
#include "validation/json_open_members.h"

namespace quorvex::linux_service {

void JsonOpenMembers::Touch(const JsonTokenReader& tokens, JsonContainer* object,
                            std::uint64_t* steps) {
  terminated.assign(tokens.Text());
  const guint hash = g_str_hash(terminated.c_str());
  const JsonMember wanted = {hash, tokens.Text(), 0};
  object->currentMember =
      object->index != nullptr ? FindByIndex(wanted, *object, steps) : Find(wanted, *object, steps);
  if (object->currentMember == members.size()) {
    Add(tokens, hash, object);
  } else {
    *steps += object->currentMember - object->firstMember;
  }
}

std::size_t JsonOpenMembers::Find(const JsonMember& wanted, const JsonContainer& object,
                                  std::uint64_t* steps) const {
  for (std::size_t at = object.firstMember; at < members.size(); ++at) {
    if (members[at].hash == wanted.hash) {
      if (members[at].name == wanted.name) {
        return at;
      }
      ++*steps;
    }
  }
  return members.size();
}

std::size_t JsonOpenMembers::FindByIndex(const JsonMember& wanted, const JsonContainer& object,
                                         std::uint64_t* steps) const {
  const auto [first, last] = object.index->equal_range(wanted.hash);
  for (auto entry = first; entry != last; ++entry, ++*steps) {
    if (members[entry->second].name == wanted.name) {
      return entry->second;
    }
  }
  return members.size();
}

void JsonOpenMembers::Add(const JsonTokenReader& tokens, guint hash, JsonContainer* object) {
  constexpr std::size_t kMostWithoutIndex = 32;
  const std::string_view name = tokens.TextIsVerbatim()
                                    ? tokens.Text()
                                    : rewrittenNames.emplace_back(std::string(tokens.Text()));
  members.push_back({hash, name, 0});
  if (object->index != nullptr) {
    object->index->emplace(hash, members.size() - 1);
  } else if (members.size() - object->firstMember > kMostWithoutIndex) {
    object->index = std::make_unique<std::multimap<guint, std::size_t>>();
    for (std::size_t at = object->firstMember; at < members.size(); ++at) {
      object->index->emplace(members[at].hash, at);
    }
  }
}

}  // namespace quorvex::linux_service
