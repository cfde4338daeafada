// SPDX-License-Identifier: Apache-2.0
#include "validation/wireguard_second_reading.h"

#include <string_view>

#include "runtime/secure_clear.h"
#include "validation/engine_rules.h"
#include "validation/rule_text.h"

namespace quorvex::linux_service {
namespace {

std::string WithoutComments(const std::string& rawConfig) {
  std::string text;
  // One allocation, so that growing leaves no copies of the key behind.
  text.reserve(rawConfig.size() + 1);
  for (std::string_view rest = rawConfig; !rest.empty();) {
    const std::string_view line = TakeLine(&rest);
    text.append(line.substr(0, line.find('#'))).push_back('\n');
  }
  return text;
}

}  // namespace

ValidationResult ValidateAsWgQuickReads(const std::string& rawConfig) {
  std::string text = WithoutComments(rawConfig);
  ValidationResult verdict = ValidateWireGuard(text);
  SecureClear(&text);
  return verdict;
}

}  // namespace quorvex::linux_service
