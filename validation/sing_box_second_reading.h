// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "validation/json_guards.h"
#include "validation/profile_validation.h"

namespace quorvex::linux_service {

// The sentence of the first rule for sing-box that a profile fails; null if
// it passes all. It decides on names as they are written.
[[nodiscard]] const char* SingBoxComplaint(const std::string& protocol, const JsonProfile& profile);

// Holds a profile to the sing-box rules, and after them to what sing-box itself reads in it. It is
// refused if json-glib would hand over another meaning, or if sing-box would find in it an option
// that the rules did not see: by another spelling, in a place that they do not look at, or one that
// opens a file, a program, a port or a list of the profile's own. The sentence is that of the rule
// that the option gets around. Pure.
[[nodiscard]] ValidationResult ValidateAsSingBoxReads(const std::string& protocol,
                                                      const std::string& rawConfig);

}  // namespace quorvex::linux_service
