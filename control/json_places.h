// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "control/fault_place.h"

namespace quorvex::control {

// LocateFault for sing-box and Xray.
[[nodiscard]] std::optional<FaultPlace> LocateInJson(const std::string& protocol,
                                                     const std::string& rawConfig,
                                                     const std::string& message);

}  // namespace quorvex::control
