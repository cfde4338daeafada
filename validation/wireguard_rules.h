// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace quorvex::linux_service {

// Whether `key`, already in lower case, is an Interface key that only AmneziaWG knows.
[[nodiscard]] bool IsAmneziaInterfaceKey(std::string_view key);

}  // namespace quorvex::linux_service
