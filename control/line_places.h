// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "control/fault_place.h"

namespace quorvex::control {

// LocateFault for the two formats that are read line by line.
[[nodiscard]] std::optional<FaultPlace> LocateInWireGuard(const std::string& rawConfig,
                                                          const std::string& message);
[[nodiscard]] std::optional<FaultPlace> LocateInOpenVpn(const std::string& rawConfig,
                                                        const std::string& message);

}  // namespace quorvex::control
