// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "validation/profile_validation.h"

namespace quorvex::linux_service {

// Holds a profile that has passed the OpenVPN rules to a list of permitted options once more, as
// OpenVPN reads it after the service has put its own device into the `dev` lines. OpenVPN sees
// through quotes, backslashes and a byte order mark (`"log" x` is a directive to it), cuts lines
// into pieces, and closes an inline block at any piece that begins with the tag: what the rules
// took for a certificate may be a directive. The verdict carries the rules' own sentence for the
// matter. Pure.
[[nodiscard]] ValidationResult ValidateAsOpenVpnReads(const std::string& rawConfig);

}  // namespace quorvex::linux_service
