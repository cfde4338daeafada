// SPDX-License-Identifier: Apache-2.0
#include "validation/sing_box_second_reading.h"

#include "validation/json_both_readings.h"
#include "validation/sing_box_options.h"

namespace quorvex::linux_service {

ValidationResult ValidateAsSingBoxReads(const std::string& protocol, const std::string& rawConfig) {
  const JsonRules rules = [&protocol](const JsonProfile& profile) {
    return SingBoxComplaint(protocol, profile);
  };
  return ValidateBothJsonReadings(rawConfig, rules, kSingBoxOptions);
}

}  // namespace quorvex::linux_service
