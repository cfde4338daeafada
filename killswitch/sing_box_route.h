// SPDX-License-Identifier: Apache-2.0
//
// sing-box sends the machine's traffic into its tunnel by a packet mark, after the first route
// look-up. nftables' output hook keeps the answer of that first look-up, the physical device, and
// the kill switch would drop what is on its way into the tunnel. One routing rule for each family
// makes the first answer the tunnel already. Xray, OpenVPN and WireGuard need none.
#pragma once

#include <cstdint>
#include <string>

namespace quorvex::linux_service {

// The mark of sing-box's own sockets, which alone go past the tunnel, unless its configuration
// names another.
inline constexpr std::uint32_t kSingBoxDefaultMark = 0x2024;

// Sends everything without `mark` to sing-box's routing table first, in both families; a family
// that the kernel does not have needs no rule. Replaces an earlier rule of ours. Speaks netlink;
// never blocks for long. On failure `error` (not null) says why, and there may be a rule for one
// family.
[[nodiscard]] bool AddSingBoxRoute(std::uint32_t mark, std::string* error);

// Removes what AddSingBoxRoute added, in this or in an earlier run of the service, and nothing
// else; succeeds when there is nothing.
[[nodiscard]] bool RemoveSingBoxRoute(std::string* error);

}  // namespace quorvex::linux_service
