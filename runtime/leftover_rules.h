// SPDX-License-Identifier: Apache-2.0
//
// Whose a routing rule is, by its form.
#pragma once

#include <vector>

#include "runtime/kernel_routing.h"

namespace quorvex::linux_service {

// Of the rules that were not there before the engine, those that look like sing-box's, or like
// wg-quick's. `fresh` holds these rules and all routes. Pure.
[[nodiscard]] std::vector<RoutingRule> SingBoxRules(const KernelRouting& fresh);
[[nodiscard]] std::vector<RoutingRule> WireGuardRules(const KernelRouting& fresh);

}  // namespace quorvex::linux_service
