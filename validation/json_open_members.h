// SPDX-License-Identifier: Apache-2.0
//
// What a reader of JSON tokens remembers of the containers that are still open.
#pragma once

#include <glib.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "validation/json_tokens.h"

namespace quorvex::linux_service {

// A member of an open object.
struct JsonMember {
  // That json-glib uses: who knows it can make names collide at will.
  guint hash = 0;
  std::string_view name;
  std::uint64_t nodes = 0;
};

// An open object or array and what has been read of it.
struct JsonContainer {
  bool isObject = false;
  // Where an object's members begin among those of all open objects.
  std::size_t firstMember = 0;
  std::uint64_t nodes = 1;
  // The one whose value comes next.
  std::size_t currentMember = 0;
  // The members by their hashes, once they are too many to look through.
  std::unique_ptr<std::multimap<guint, std::size_t>> index = nullptr;
};

// The members of all open objects. They lie in one row, since only those of the innermost object
// can become more: a memory block for each of them, or for each object, costs more than the rest.
class JsonOpenMembers {
 public:
  [[nodiscard]] std::size_t Count() const { return members.size(); }
  [[nodiscard]] JsonMember& At(std::size_t position) { return members[position]; }

  // Makes the member of that name the current one of `object`, the innermost container; adds it if
  // there is none yet. Adds what finding it costs json-glib to `steps`.
  void Touch(const JsonTokenReader& tokens, JsonContainer* object, std::uint64_t* steps);

  // Forgets the members of the innermost container.
  void Drop(const JsonContainer& innermost) {
    members.erase(members.begin() + static_cast<std::ptrdiff_t>(innermost.firstMember),
                  members.end());
  }

 private:
  // Where a member of that hash and name stands; Count() if there is none.
  [[nodiscard]] std::size_t Find(const JsonMember& wanted, const JsonContainer& object,
                                 std::uint64_t* steps) const;
  [[nodiscard]] std::size_t FindByIndex(const JsonMember& wanted, const JsonContainer& object,
                                        std::uint64_t* steps) const;
  void Add(const JsonTokenReader& tokens, guint hash, JsonContainer* object);

  std::vector<JsonMember> members;
  // Names that stand otherwise in the text. They stay where they are when they become more.
  std::deque<std::string> rewrittenNames;
  // For the terminating NUL that the hash needs.
  std::string terminated;
};

}  // namespace quorvex::linux_service
