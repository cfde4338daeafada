// SPDX-License-Identifier: Apache-2.0
//
// The rule sets that ValidateProfile dispatches to, one per engine. Each is pure and returns the
// first failing rule's sentence.
#pragma once

#include <string>

#include "validation/profile_validation.h"

namespace quorvex::linux_service {

[[nodiscard]] ValidationResult ValidateSingBox(const std::string& protocol,
                                               const std::string& rawConfig);
[[nodiscard]] ValidationResult ValidateXray(const std::string& rawConfig);
[[nodiscard]] ValidationResult ValidateWireGuard(const std::string& rawConfig);
[[nodiscard]] ValidationResult ValidateOpenVpn(const std::string& rawConfig);

// The outbound type that a selected protocol must find, in lower case; "singbox" and "sing-box"
// stay and stand for any.
[[nodiscard]] std::string CanonicalSingBoxProtocol(const std::string& protocol);

}  // namespace quorvex::linux_service
