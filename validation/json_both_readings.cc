// SPDX-License-Identifier: Apache-2.0
#include "validation/json_both_readings.h"

#include "runtime/glib_ptr.h"
#include "validation/json_guards.h"
#include "validation/json_rewrite_guard.h"
#include "validation/rule_text.h"

namespace quorvex::linux_service {
namespace {

constexpr const char* kMalformed = "The JSON VPN configuration is malformed.";

}  // namespace

ValidationResult ValidateBothJsonReadings(const std::string& rawConfig, const JsonRules& rules,
                                          const JsonOptionTable& options) {
  GObjectPtr<JsonParser> parser;
  JsonObject* root = nullptr;
  if (ValidationResult parsed = ParseJsonObject(rawConfig, &parser, &root); !parsed.valid) {
    return parsed;
  }
  if (const char* complaint = rules(json_parser_get_root(parser.get())); complaint != nullptr) {
    return Invalid(complaint);
  }
  if (!SurvivesRewriting(rawConfig)) {
    return Invalid(kMalformed);
  }
  const char* complaint = ComplaintAboutOptions(root, options);
  return complaint == nullptr ? Valid() : Invalid(complaint);
}

}  // namespace quorvex::linux_service
