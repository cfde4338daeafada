// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace quorvex::linux_service {

// Overwrites the string's contents with zeros in a way that the compiler keeps, empties it and
// asks it to give back its memory. A null pointer is ignored.
void SecureClear(std::string* value) noexcept;

}  // namespace quorvex::linux_service
