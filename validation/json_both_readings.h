// SPDX-License-Identifier: Apache-2.0
//
// The road of every JSON profile: parsed once, held to the rules as it is written, and then to the
// engine's own reading.
#pragma once

#include <functional>
#include <string>

#include "validation/json_engine_reading.h"
#include "validation/json_guards.h"
#include "validation/profile_validation.h"

namespace quorvex::linux_service {

// The sentence with which the rules refuse the profile; null if they do not.
using JsonRules = std::function<const char*(const JsonProfile& profile)>;

// Whether the text passes the rules and, after them, whether json-glib hands the engine what it
// says, and whether the engine reads in it no option but those that `options` allows. Pure.
[[nodiscard]] ValidationResult ValidateBothJsonReadings(const std::string& rawConfig,
                                                        const JsonRules& rules,
                                                        const JsonOptionTable& options);

}  // namespace quorvex::linux_service
