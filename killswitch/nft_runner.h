// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace quorvex::linux_service {

// Runs nft with `arguments` under a limit of five seconds and feeds it `input` (nothing when
// empty). Its output is never read. On failure `error` (not null) is one sentence.
[[nodiscard]] bool RunNft(const std::vector<std::string>& arguments, const std::string& input,
                          std::string* error);

}  // namespace quorvex::linux_service
