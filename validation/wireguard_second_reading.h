// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "validation/profile_validation.h"

namespace quorvex::linux_service {

// Holds a configuration that has passed the WireGuard rules to them once more, as wg and wg-quick
// read it: both cut every line at its first "#", which to the rules is part of the value. So "Table
// = off # x" is Table=off, and "AllowedIPs = 10.0.0.0/8 # , 0.0.0.0/0" is no default route. The
// verdict carries the sentence of the rule that then fails. Pure.
[[nodiscard]] ValidationResult ValidateAsWgQuickReads(const std::string& rawConfig);

}  // namespace quorvex::linux_service
