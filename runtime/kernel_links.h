// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>
#include <string>

namespace quorvex::linux_service {

// Deletes the interface `name` if it is of one of the kernel's `kinds`, such as "tun". Success when
// it has gone or is of another kind; on failure `error` (not null) says why.
[[nodiscard]] bool DeleteLink(const std::string& name, std::span<const char* const> kinds,
                              std::string* error);

}  // namespace quorvex::linux_service
