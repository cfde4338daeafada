// SPDX-License-Identifier: Apache-2.0
//
// Which words of a profile are names of options. Where a place is shown, only these may be: any
// other word of a broken line can be a piece of a key or a password.
#pragma once

#include <string_view>

namespace quorvex::control {

// In any letter case.
[[nodiscard]] bool IsWireGuardName(std::string_view word);
// In any letter case, with or without "--"; also a block's tag, such as "<ca>".
[[nodiscard]] bool IsOpenVpnName(std::string_view word);
// Letters, digits and "_", as JSON engines name their options, and no longer than any of those.
[[nodiscard]] bool IsJsonName(std::string_view name);

}  // namespace quorvex::control
