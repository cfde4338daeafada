// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <string>
#include <vector>

#include "runtime/constants.h"

namespace quorvex::linux_service {

// What nft is put behind. An earlier run's nft is known by it.
inline constexpr std::array<const char*, 4> kNftPrefix = {kTimeoutBinary, "--signal=TERM",
                                                          "--kill-after=1s", "5s"};

// Runs nft with `arguments` under a limit of five seconds and feeds it `input` (nothing when
// empty). Its output is never read. On failure `error` (not null) is one sentence.
[[nodiscard]] bool RunNft(const std::vector<std::string>& arguments, const std::string& input,
                          std::string* error);

}  // namespace quorvex::linux_service
