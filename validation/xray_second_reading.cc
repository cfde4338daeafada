// SPDX-License-Identifier: Apache-2.0
#include "validation/xray_second_reading.h"

#include "validation/json_both_readings.h"
#include "validation/xray_options.h"

namespace quorvex::linux_service {

ValidationResult ValidateAsXrayReads(const std::string& rawConfig) {
  return ValidateBothJsonReadings(rawConfig, XrayComplaint, kXrayOptions);
}

}  // namespace quorvex::linux_service
