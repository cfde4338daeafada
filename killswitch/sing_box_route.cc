// SPDX-License-Identifier: Apache-2.0
#include "killswitch/sing_box_route.h"

#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <vector>

#include "runtime/routing_rules.h"

namespace quorvex::linux_service {
namespace {

// sing-box's table, and priorities outside the ones that it clears when it ends (9000 to 9010).
constexpr std::uint32_t kTable = 2022;
constexpr std::uint32_t kLocalPriority = 9099;
constexpr std::uint32_t kPriority = 9100;
// The kernel keeps with each rule who made it. No routing daemon has this number.
constexpr std::uint8_t kMadeByUs = 113;
constexpr std::array<std::uint8_t, 2> kFamilies = {AF_INET, AF_INET6};

// "not fwmark MARK lookup 2022".
RoutingRule IntoTunnel(std::uint8_t family, std::uint32_t mark) {
  RoutingRule rule;
  rule.family = family;
  rule.inverted = true;
  rule.maker = kMadeByUs;
  rule.priority = kPriority;
  rule.table = kTable;
  rule.mark = mark;
  return rule;
}

// "lookup main suppress_prefixlength 0": the main table without its default route.
RoutingRule ToLocalNetworks(std::uint8_t family) {
  RoutingRule rule;
  rule.family = family;
  rule.maker = kMadeByUs;
  rule.priority = kLocalPriority;
  rule.table = RT_TABLE_MAIN;
  rule.suppressed = 0;
  return rule;
}

std::vector<RoutingRule> Wanted(std::uint32_t mark, LocalNetworks local) {
  std::vector<RoutingRule> wanted;
  for (const std::uint8_t family : kFamilies) {
    if (local == LocalNetworks::kOutside) {
      wanted.push_back(ToLocalNetworks(family));
    }
    wanted.push_back(IntoTunnel(family, mark));
  }
  return wanted;
}

bool SaysTheSame(const RoutingRule& one, const RoutingRule& other) {
  return one.family == other.family && one.inverted == other.inverted && one.maker == other.maker &&
         one.priority == other.priority && one.table == other.table && one.mark == other.mark &&
         one.suppressed == other.suppressed;
}

bool IsIn(const std::vector<RoutingRule>& rules, const RoutingRule& rule) {
  return std::ranges::any_of(
      rules, [&rule](const RoutingRule& other) { return SaysTheSame(rule, other); });
}

bool ListOurs(std::vector<RoutingRule>* rules, std::string* error) {
  if (!ListRoutingRules(rules, error)) {
    return false;
  }
  std::erase_if(*rules, [](const RoutingRule& rule) {
    const bool into = rule.priority == kPriority && rule.table == kTable;
    const bool local = rule.priority == kLocalPriority && rule.table == RT_TABLE_MAIN;
    return rule.maker != kMadeByUs || !(into || local);
  });
  return true;
}

}  // namespace

bool AddSingBoxRoute(std::uint32_t mark, LocalNetworks local, std::string* error) {
  const std::vector<RoutingRule> wanted = Wanted(mark, local);
  std::vector<RoutingRule> ours;
  if (!ListOurs(&ours, error)) {
    return false;
  }
  for (const RoutingRule& rule : wanted) {
    if (!IsIn(ours, rule) && !AddRoutingRule(rule, error)) {
      return false;
    }
  }
  return std::ranges::all_of(ours, [&wanted, error](const RoutingRule& rule) {
    return IsIn(wanted, rule) || DeleteRoutingRule(rule, error);
  });
}

bool RemoveSingBoxRoute(std::string* error) {
  std::vector<RoutingRule> ours;
  return ListOurs(&ours, error) && std::ranges::all_of(ours, [error](const RoutingRule& rule) {
           return DeleteRoutingRule(rule, error);
         });
}

}  // namespace quorvex::linux_service
