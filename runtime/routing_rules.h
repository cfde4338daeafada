// SPDX-License-Identifier: Apache-2.0
//
// The kernel's routing policy rules (ip rule), listed, added and deleted one by one.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace quorvex::linux_service {

// The parts of a rule by which we tell whose it is.
struct RoutingRule {
  // AF_INET or AF_INET6.
  std::uint8_t family = 0;
  // FR_ACT_...: to look up a table, to go on with another rule, ...
  std::uint8_t action = 0;
  // "not": the rule is for what does not match.
  bool inverted = false;
  // Nothing decides but the mark: no address, interface, port, user ...
  bool plain = true;
  // Which program made it, as far as that program told.
  std::uint8_t maker = 0;
  std::uint32_t priority = 0;
  std::uint32_t table = 0;
  std::uint32_t mark = 0;
  // A found route with a prefix of at most this length is passed over; UINT32_MAX: none is.
  std::uint32_t suppressed = UINT32_MAX;
  // The kernel's own description, which names this rule and no other. The same for one rule as long
  // as it stands; empty for one that is yet to be added.
  std::string description;
};

// All rules of both families. On failure `error` (not null) says why.
[[nodiscard]] bool ListRoutingRules(std::vector<RoutingRule>* rules, std::string* error);

// Adds a rule that leads to a table and matches by the mark alone (0: everything), as described by
// the other fields. On a machine without the rule's family there is nothing to add.
[[nodiscard]] bool AddRoutingRule(const RoutingRule& rule, std::string* error);

// Deletes the rule; one that has gone meanwhile counts as deleted.
[[nodiscard]] bool DeleteRoutingRule(const RoutingRule& rule, std::string* error);

}  // namespace quorvex::linux_service
