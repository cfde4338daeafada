// SPDX-License-Identifier: Apache-2.0
//
// sing-box sends the machine's traffic into its tunnel by a packet mark, after the first route
// look-up, and marks new connections alone. So connections made before the tunnel would go on
// beside it; and nftables' output hook, which keeps the answer of that first look-up, would take
// what is on its way into the tunnel for a leak. A routing rule for each family makes the first
// answer the tunnel already. Xray, OpenVPN and WireGuard need none.
#pragma once

#include <cstdint>
#include <string>

namespace quorvex::linux_service {

// The mark of sing-box's own sockets, which alone go past the tunnel, unless its configuration
// names another.
inline constexpr std::uint32_t kSingBoxDefaultMark = 0x2024;

// Whether destinations that the machine reaches without a gateway stay outside the tunnel. A kill
// switch blocks them there, so under it they go inside.
enum class LocalNetworks { kOutside, kInside };

// Sends everything without `mark` to sing-box's routing table first, in both families; a family
// that the kernel does not have needs no rule. What stands already and is still wanted is not
// touched, the rest of ours is replaced. Speaks netlink; never blocks for long. On failure `error`
// (not null) says why, and there may be rules for one family.
[[nodiscard]] bool AddSingBoxRoute(std::uint32_t mark, LocalNetworks local, std::string* error);

// Removes what AddSingBoxRoute added, in this or in an earlier run of the service, and nothing
// else; succeeds when there is nothing.
[[nodiscard]] bool RemoveSingBoxRoute(std::string* error);

}  // namespace quorvex::linux_service
