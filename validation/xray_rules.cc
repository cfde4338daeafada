// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

#include "validation/engine_rules.h"
#include "validation/json_guards.h"
#include "validation/rule_text.h"

namespace quorvex::linux_service {
namespace {

// The sentences, in checking order.
constexpr const char* kApi = "Xray API listeners are not permitted in VPN profiles.";
constexpr const char* kLogFile = "Xray profiles may not write logs to files.";
constexpr const char* kFileMember = "Xray profiles may not reference privileged certificate files.";
constexpr const char* kExternalResource = "Xray profiles may not load external resources as root.";
constexpr const char* kNoInbound = "Xray profiles must contain a TUN inbound.";
constexpr const char* kNotOneInbound =
    "Xray profiles must contain exactly one app-owned TUN inbound.";
constexpr const char* kNotTun = "The Xray inbound must use the TUN protocol.";
constexpr const char* kNoOutbound = "Xray profiles must contain at least one outbound.";
constexpr const char* kNoProxy = "Xray profiles require a tagged proxy outbound.";

constexpr std::array<std::string_view, 3> kNeverAProxy = {"freedom", "blackhole", "dns"};

using Complaint = std::optional<const char*>;

Complaint CheckForbidden(JsonNode* rootNode) {
  JsonObject* root = json_node_get_object(rootNode);
  if (json_object_has_member(root, "api") != FALSE) {
    return kApi;
  }
  JsonObject* log = JsonObjectMember(root, "log");
  if (JsonMemberHasNonEmptyString(log, "access") || JsonMemberHasNonEmptyString(log, "error")) {
    return kLogFile;
  }
  if (ContainsForbiddenFileMember(rootNode)) {
    return kFileMember;
  }
  if (ContainsForbiddenExternalResource(rootNode)) {
    return kExternalResource;
  }
  return {};
}

Complaint CheckInbounds(JsonObject* root) {
  JsonArray* inbounds = JsonArrayMember(root, "inbounds");
  if (inbounds == nullptr) {
    return kNoInbound;
  }
  if (json_array_get_length(inbounds) != 1) {
    return kNotOneInbound;
  }
  if (!JsonStringEquals(JsonObjectElement(inbounds, 0), "protocol", "tun")) {
    return kNotTun;
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
    return kNoOutbound;
  }
  for (guint index = 0; index < json_array_get_length(outbounds); ++index) {
    if (IsProxy(JsonObjectElement(outbounds, index))) {
      return {};
    }
  }
  return kNoProxy;
}

Complaint FirstComplaint(JsonNode* rootNode) {
  JsonObject* root = json_node_get_object(rootNode);
  if (const Complaint complaint = CheckForbidden(rootNode)) {
    return complaint;
  }
  if (const Complaint complaint = CheckInbounds(root)) {
    return complaint;
  }
  return CheckOutbounds(root);
}

}  // namespace

ValidationResult ValidateXray(const std::string& rawConfig) {
  GObjectPtr<JsonParser> parser;
  JsonObject* root = nullptr;
  if (ValidationResult parsed = ParseJsonObject(rawConfig, &parser, &root); !parsed.valid) {
    return parsed;
  }
  const Complaint complaint = FirstComplaint(json_parser_get_root(parser.get()));
  return complaint ? Invalid(*complaint) : Valid();
}

}  // namespace quorvex::linux_service
