// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace quorvex::linux_service {

// A validated OpenVPN profile on the service's own tunnel device: each `dev` line outside an inline
// block names it, all other lines are as they were, and the last one ends with a line feed, too.
// The result is a secret like the profile. Pure; any thread.
[[nodiscard]] std::string RewriteOpenVpnConfig(const std::string& configuration);

}  // namespace quorvex::linux_service
