// SPDX-License-Identifier: Apache-2.0
//
// The gate that every profile passes before any engine, file or command sees it. The service
// runs as root and trusts no profile: what is not on the allow-list is refused.
#pragma once

#include <string>

namespace quorvex::linux_service {

struct ValidationResult {
  bool valid = false;
  // Empty when valid; otherwise one English sentence for the user, ending in a full stop.
  std::string message;
};

// Holds a profile to the rules. `profileId` is the caller's identifier (1 to 256 bytes, no
// control characters), `protocol` the protocol's name in any letter case, `rawConfig` the
// engine's configuration text (1 to 2,097,152 bytes, no NUL). The first rule that fails gives
// the message. Pure; runs on any thread; never throws for bad input and never logs.
[[nodiscard]] ValidationResult ValidateProfile(const std::string& profileId,
                                               const std::string& protocol,
                                               const std::string& rawConfig);

// Whether a validated WireGuard configuration uses keys that only the AmneziaWG tools know.
[[nodiscard]] bool WireGuardConfigRequiresAmnezia(const std::string& rawConfig);

}  // namespace quorvex::linux_service
