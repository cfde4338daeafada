// SPDX-License-Identifier: Apache-2.0
#include "runtime/leftover_rules.h"

#include <linux/fib_rules.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <iterator>

namespace quorvex::linux_service {
namespace {

using Rules = std::vector<RoutingRule>;

// sing-box's rules: 9000 to 9010 lead marked packets into its table, 32768 all that found no other
// route. It clears the same numbers itself at its start and at its end.
constexpr std::uint32_t kSingBoxTable = 2022;
constexpr std::uint32_t kSingBoxFirstRule = 9000;
constexpr std::uint32_t kSingBoxLastRule = 9010;
constexpr std::uint32_t kSingBoxFallbackRule = 32768;

// Whether somebody else has routes in the table.
bool IsInUse(std::uint32_t table, const KernelRouting& kernel) {
  return std::ranges::any_of(kernel.routes, [table, &kernel](const KernelRoute& route) {
    return route.table == table && (kernel.tunnel == 0 || route.device != kernel.tunnel);
  });
}

bool IsInSingBoxRange(const RoutingRule& rule) {
  return rule.priority >= kSingBoxFirstRule && rule.priority <= kSingBoxLastRule;
}

bool LooksUpAnotherTable(const RoutingRule& rule) {
  return rule.action == FR_ACT_TO_TBL && rule.table != kSingBoxTable;
}

// As `ip rule` makes them: older ones name no maker, newer ones the boot.
bool IsMadeByIp(const RoutingRule& rule) {
  return rule.plain && rule.action == FR_ACT_TO_TBL &&
         (rule.maker == RTPROT_UNSPEC || rule.maker == RTPROT_BOOT);
}

// "not fwmark N lookup N": everything but the tunnel's own packets goes by its table.
bool IsQuickRule(const RoutingRule& rule) {
  return IsMadeByIp(rule) && rule.inverted && rule.mark != 0 && rule.mark == rule.table &&
         rule.suppressed == UINT32_MAX;
}

// "lookup main suppress_prefixlength 0": but first by the main table without its default route.
bool IsQuickCompanion(const RoutingRule& rule) {
  return IsMadeByIp(rule) && !rule.inverted && rule.mark == 0 && rule.table == RT_TABLE_MAIN &&
         rule.suppressed == 0;
}

// wg-quick adds the companion right after its rule, and the kernel puts it one before. A companion
// that stands alone lost its rule to a wg-quick that was stopped half-way.
bool BelongsTo(const RoutingRule& companion, const Rules& rules) {
  return std::ranges::any_of(rules, [&companion](const RoutingRule& rule) {
    return rule.family == companion.family && rule.priority == companion.priority + 1;
  });
}

}  // namespace

// A sing-box clears the whole range when it starts, so all of it belongs to one.
Rules SingBoxRules(const KernelRouting& fresh) {
  Rules ours;
  if (IsInUse(kSingBoxTable, fresh)) {
    return ours;
  }
  const bool isOurRange = std::ranges::none_of(fresh.rules, [](const RoutingRule& rule) {
    return IsInSingBoxRange(rule) && LooksUpAnotherTable(rule);
  });
  std::ranges::copy_if(fresh.rules, std::back_inserter(ours),
                       [isOurRange](const RoutingRule& rule) {
                         const bool isFallback =
                             rule.priority == kSingBoxFallbackRule && rule.table == kSingBoxTable;
                         return isFallback || (isOurRange && IsInSingBoxRange(rule));
                       });
  return ours;
}

Rules WireGuardRules(const KernelRouting& fresh) {
  Rules ours;
  Rules foreign;
  for (const RoutingRule& rule : fresh.rules) {
    if (IsQuickRule(rule)) {
      (IsInUse(rule.table, fresh) ? foreign : ours).push_back(rule);
    }
  }
  for (const RoutingRule& rule : fresh.rules) {
    if (IsQuickCompanion(rule) && !BelongsTo(rule, foreign)) {
      ours.push_back(rule);
    }
  }
  return ours;
}

}  // namespace quorvex::linux_service
