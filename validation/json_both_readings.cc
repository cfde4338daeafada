// SPDX-License-Identifier: Apache-2.0
#include "validation/json_both_readings.h"

#include "validation/json_rewrite_guard.h"
#include "validation/rule_text.h"

namespace quorvex::linux_service {
ValidationResult ValidateBothJsonReadings(const std::string& rawConfig, const JsonRules& rules,
                                          const JsonOptionTable& options) {
  JsonProfile profile;
  if (ValidationResult parsed = ParseJsonProfile(rawConfig, &profile); !parsed.valid) {
    return parsed;
  }
  if (const char* complaint = rules(profile); complaint != nullptr) {
    return Invalid(complaint);
  }
  if (!profile.survivesRewriting && !SurvivesRewriting(rawConfig)) {
    return Invalid(kJsonMalformed);
  }
  const char* complaint = ComplaintAboutOptions(json_node_get_object(profile.root), options);
  return complaint == nullptr ? Valid() : Invalid(complaint);
}

}  // namespace quorvex::linux_service
