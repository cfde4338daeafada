// SPDX-License-Identifier: Apache-2.0
//
// What the kernel lets everybody see of a tunnel, and root of the kill switch. The service's
// snapshot names neither engine nor routes, so they are read where they are.
#pragma once

#include <string>
#include <vector>

#include "runtime/engine_catalogue.h"

namespace quorvex::control {

// The engines whose tunnel interface exists, in the catalogue's order.
[[nodiscard]] std::vector<linux_service::EngineKind> EnginesWithInterface();

// Whether all traffic of a family has a route through the interface: one to everywhere, or several
// that cover it. Routing rules and metrics are not looked at.
struct FullRoute {
  bool ipv4 = false;
  bool ipv6 = false;
};
[[nodiscard]] FullRoute FullRouteThrough(const std::string& interface);

enum class KillSwitch { kOff, kOn, kUnknown };

// Whether the kill switch's table is loaded. The kernel tells root alone; for others kUnknown.
[[nodiscard]] KillSwitch AskKillSwitch();

// "on", "off" or "unknown".
[[nodiscard]] const char* KillSwitchWord(KillSwitch state);

}  // namespace quorvex::control
