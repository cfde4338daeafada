// SPDX-License-Identifier: Apache-2.0
#include "validation/profile_validation.h"

#include <algorithm>

#include "runtime/engine_catalogue.h"
#include "validation/engine_rules.h"
#include "validation/openvpn_second_reading.h"
#include "validation/rule_text.h"
#include "validation/sing_box_second_reading.h"
#include "validation/wireguard_second_reading.h"
#include "validation/xray_second_reading.h"

namespace quorvex::linux_service {
namespace {

constexpr std::size_t kLongestIdentifier = 256;
constexpr std::size_t kLargestConfiguration = 2097152;

constexpr const char* kBadIdentifier = "The profile identifier is invalid.";
constexpr const char* kBadSize = "The VPN configuration is empty or too large.";
constexpr const char* kUnknownProtocol =
    "This Linux build does not recognize the selected VPN protocol.";

bool IsControlByte(unsigned char byte) {
  constexpr unsigned char kFirstPrintable = 0x20;
  constexpr unsigned char kDelete = 0x7F;
  return byte < kFirstPrintable || byte == kDelete;
}

bool IsUsableIdentifier(const std::string& identifier) {
  return !identifier.empty() && identifier.size() <= kLongestIdentifier &&
         std::ranges::none_of(identifier, IsControlByte);
}

bool HasUsableSize(const std::string& rawConfig) {
  return !rawConfig.empty() && rawConfig.size() <= kLargestConfiguration &&
         rawConfig.find('\0') == std::string::npos;
}

using Check = ValidationResult(const std::string& rawConfig);

ValidationResult ValidateBothReadings(Check* byTheRules, Check* asTheEngineReads,
                                      const std::string& rawConfig) {
  ValidationResult verdict = byTheRules(rawConfig);
  return verdict.valid ? asTheEngineReads(rawConfig) : verdict;
}

}  // namespace

ValidationResult ValidateProfile(const std::string& profileId, const std::string& protocol,
                                 const std::string& rawConfig) {
  if (!IsUsableIdentifier(profileId)) {
    return Invalid(kBadIdentifier);
  }
  if (!HasUsableSize(rawConfig)) {
    return Invalid(kBadSize);
  }
  switch (EngineForProtocol(protocol)) {
    case EngineKind::kSingBox:
      return ValidateAsSingBoxReads(protocol, rawConfig);
    case EngineKind::kXray:
      return ValidateAsXrayReads(rawConfig);
    case EngineKind::kWireGuard:
      return ValidateBothReadings(ValidateWireGuard, ValidateAsWgQuickReads, rawConfig);
    case EngineKind::kOpenVpn:
      return ValidateBothReadings(ValidateOpenVpn, ValidateAsOpenVpnReads, rawConfig);
    case EngineKind::kUnsupported:
      break;
  }
  return Invalid(kUnknownProtocol);
}

}  // namespace quorvex::linux_service
