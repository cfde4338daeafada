// SPDX-License-Identifier: Apache-2.0
//
// The routing of the machine as a whole, for those who tell whose its parts are.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "runtime/kernel_routes.h"
#include "runtime/routing_rules.h"

namespace quorvex::linux_service {

// What is on the machine. `tunnel` is the engine's interface, 0 when that is gone.
struct KernelRouting {
  std::vector<RoutingRule> rules;
  std::vector<KernelRoute> routes;
  std::uint32_t tunnel = 0;
};

// Whether a description of a rule or route is among these.
[[nodiscard]] inline bool IsDescribed(const std::vector<std::string>& descriptions,
                                      const std::string& description) {
  return std::ranges::find(descriptions, description) != descriptions.end();
}

}  // namespace quorvex::linux_service
