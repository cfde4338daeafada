// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

#include "validation/engine_rules.h"
#include "validation/json_guards.h"
#include "validation/rule_text.h"
#include "validation/xray_second_reading.h"
#include "validation/xray_sentences.h"

namespace quorvex::linux_service {
namespace {

constexpr std::array<std::string_view, 3> kNeverAProxy = {"freedom", "blackhole", "dns"};

using Complaint = std::optional<const char*>;

Complaint CheckForbidden(const JsonProfile& profile) {
  JsonObject* root = json_node_get_object(profile.root);
  if (json_object_has_member(root, "api") != FALSE) {
    return kXrayApi;
  }
  JsonObject* log = JsonObjectMember(root, "log");
  if (JsonMemberHasNonEmptyString(log, "access") || JsonMemberHasNonEmptyString(log, "error")) {
    return kXrayLogFile;
  }
  const ForbiddenReferences found = FindForbiddenReferences(profile);
  if (found.file) {
    return kXrayFileMember;
  }
  if (found.external) {
    return kXrayExternalResource;
  }
  return {};
}

Complaint CheckInbounds(JsonObject* root) {
  JsonArray* inbounds = JsonArrayMember(root, "inbounds");
  if (inbounds == nullptr) {
    return kXrayNoInbound;
  }
  if (json_array_get_length(inbounds) != 1) {
    return kXrayNotOneInbound;
  }
  if (!JsonStringEquals(JsonObjectElement(inbounds, 0), "protocol", "tun")) {
    return kXrayNotTun;
  }
  return {};
}

bool IsProxy(JsonObject* outbound) {
  if (!JsonMemberHasNonEmptyString(outbound, "tag") ||
      !JsonMemberHasNonEmptyString(outbound, "protocol")) {
    return false;
  }
  const std::string protocol = JsonLowercaseString(outbound, "protocol");
  return std::ranges::find(kNeverAProxy, protocol) == kNeverAProxy.end();
}

Complaint CheckOutbounds(JsonObject* root) {
  JsonArray* outbounds = JsonArrayMember(root, "outbounds");
  if (outbounds == nullptr) {
    return kXrayNoOutbound;
  }
  for (guint index = 0; index < json_array_get_length(outbounds); ++index) {
    if (IsProxy(JsonObjectElement(outbounds, index))) {
      return {};
    }
  }
  return kXrayNoProxy;
}

}  // namespace

const char* XrayComplaint(const JsonProfile& profile) {
  JsonObject* root = json_node_get_object(profile.root);
  if (const Complaint complaint = CheckForbidden(profile)) {
    return *complaint;
  }
  if (const Complaint complaint = CheckInbounds(root)) {
    return *complaint;
  }
  return CheckOutbounds(root).value_or(nullptr);
}

ValidationResult ValidateXray(const std::string& rawConfig) {
  JsonProfile profile;
  if (ValidationResult parsed = ParseJsonProfile(rawConfig, &profile); !parsed.valid) {
    return parsed;
  }
  const char* complaint = XrayComplaint(profile);
  return complaint == nullptr ? Valid() : Invalid(complaint);
}

}  // namespace quorvex::linux_service
