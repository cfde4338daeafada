// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "runtime/engine_catalogue.h"

namespace quorvex::linux_service {

// The private configuration of an engine; "" for any other value. Never null.
[[nodiscard]] const char* PrivateConfigFor(EngineKind kind);

// Removes the private files of an engine that is down and, for OpenVPN, has the DNS helper revert
// its DNS state first. On failure `error` (not null) is one sentence and what follows the failing
// step stays. May run the DNS helper: blocks for up to 15 s.
[[nodiscard]] bool RemoveConfigFor(EngineKind kind, std::string* error);

}  // namespace quorvex::linux_service
