// SPDX-License-Identifier: Apache-2.0
//
// Which tunnel engines exist, how a profile's protocol selects one, what each is called in
// messages and which network interface it owns.
#pragma once

#include <cstdint>
#include <string>

namespace quorvex::linux_service {

// The values are fixed: they travel between the bus front and the runtime by number.
enum class EngineKind : std::uint32_t {
  kUnsupported = 0,
  kSingBox = 1,
  kXray = 2,
  kWireGuard = 3,
  kOpenVpn = 4,
};

// The engine that runs `protocol` (any letter case, nothing trimmed); kUnsupported if none does.
[[nodiscard]] EngineKind EngineForProtocol(const std::string& protocol);

// The engine's name as users read it, for example "Sing-box"; "Unsupported" for any other value.
// Never null, valid for the life of the process.
[[nodiscard]] const char* EngineName(EngineKind kind);

// The engine's tunnel interface, for example "quorvexvpn"; "" for any other value. Never null.
[[nodiscard]] const char* TunnelInterfaceFor(EngineKind kind);

}  // namespace quorvex::linux_service
