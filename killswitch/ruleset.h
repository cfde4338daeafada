// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace quorvex::linux_service {

// Writes the complete nftables script of the kill switch into `ruleset`. `addresses` are literal
// addresses; texts that are none are left out. Pure. On failure `error` says whether the
// interface's name or the want of addresses is to blame, and `ruleset` is untouched. No pointer may
// be null.
[[nodiscard]] bool BuildKillSwitchRuleset(const std::string& interface,
                                          const std::vector<std::string>& addresses,
                                          std::string* ruleset, std::string* error);

}  // namespace quorvex::linux_service
