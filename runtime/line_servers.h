// SPDX-License-Identifier: Apache-2.0
//
// Where WireGuard and OpenVPN find the servers in a validated profile: as wg-quick and OpenVPN read
// its lines, without comments, quotes and the content of inline blocks.
#pragma once

#include <string>
#include <vector>

namespace quorvex::linux_service {

// The hosts of the profile's endpoints, names and literal addresses alike, in order. Pure.
[[nodiscard]] std::vector<std::string> WireGuardServerHosts(const std::string& configuration);

// The same for its remotes, and for the proxies on the way to them, which see the connection first.
[[nodiscard]] std::vector<std::string> OpenVpnServerHosts(const std::string& configuration);

}  // namespace quorvex::linux_service
