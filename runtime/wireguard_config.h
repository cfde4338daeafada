// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace quorvex::linux_service {

// A WireGuard configuration with DNS taken out of it.
struct WireGuardRewrite {
  // What wg-quick gets. Secret: holds the private key.
  std::string text;
  // The interface's DNS servers in the order of the profile, trimmed, empty entries kept.
  std::vector<std::string> dnsServers;
};

// Takes the DNS lines out of the [Interface] section, so that the service and not wg-quick decides
// how DNS is set. All other lines stay as they are, each ended by a newline. Pure.
[[nodiscard]] WireGuardRewrite RewriteWireGuardConfig(const std::string& config);

}  // namespace quorvex::linux_service
