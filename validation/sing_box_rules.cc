// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

#include "validation/engine_rules.h"
#include "validation/json_guards.h"
#include "validation/rule_text.h"
#include "validation/sing_box_second_reading.h"
#include "validation/sing_box_sentences.h"

namespace quorvex::linux_service {
namespace {

constexpr std::array<std::string_view, 6> kRemoteDnsTypes = {"tcp",   "udp",  "tls",
                                                             "https", "quic", "h3"};
constexpr std::array<std::string_view, 3> kNeverAProxy = {"direct", "block", "dns"};
// These stand for any proxy outbound.
constexpr std::array<std::string_view, 2> kGenericProtocols = {"singbox", "sing-box"};

using Complaint = std::optional<const char*>;

template <typename Table>
bool Contains(const Table& table, std::string_view text) {
  return std::ranges::find(table, text) != table.end();
}

Complaint CheckForbidden(const JsonProfile& profile) {
  JsonObject* root = json_node_get_object(profile.root);
  if (json_object_has_member(root, "experimental") != FALSE) {
    return kSingBoxExperimental;
  }
  if (JsonMemberHasNonEmptyString(JsonObjectMember(root, "log"), "output")) {
    return kSingBoxLogFile;
  }
  const ForbiddenReferences found = FindForbiddenReferences(profile);
  if (found.file) {
    return kSingBoxFileMember;
  }
  if (found.external) {
    return kSingBoxExternalResource;
  }
  return {};
}

Complaint CheckDnsServer(JsonObject* server) {
  if (server == nullptr) {
    return kSingBoxDnsNotStructured;
  }
  if (!JsonMemberHasNonEmptyString(server, "type") ||
      !JsonMemberHasNonEmptyString(server, "server")) {
    return kSingBoxDnsIncomplete;
  }
  if (!Contains(kRemoteDnsTypes, JsonLowercaseString(server, "type"))) {
    return kSingBoxDnsNotRemote;
  }
  return {};
}

Complaint CheckDns(JsonObject* root) {
  JsonObject* dns = JsonObjectMember(root, "dns");
  if (dns == nullptr) {
    return kSingBoxNoDns;
  }
  JsonArray* servers = JsonArrayMember(dns, "servers");
  if (servers == nullptr || json_array_get_length(servers) == 0) {
    return kSingBoxNoDnsServer;
  }
  for (guint index = 0; index < json_array_get_length(servers); ++index) {
    if (const Complaint complaint = CheckDnsServer(JsonObjectElement(servers, index))) {
      return complaint;
    }
  }
  return {};
}

Complaint CheckInbounds(JsonObject* root) {
  JsonArray* inbounds = JsonArrayMember(root, "inbounds");
  if (inbounds == nullptr) {
    return kSingBoxNoInbound;
  }
  if (json_array_get_length(inbounds) != 1) {
    return kSingBoxNotOneInbound;
  }
  JsonObject* inbound = JsonObjectElement(inbounds, 0);
  if (inbound == nullptr) {
    return kSingBoxBadInbound;
  }
  if (!JsonStringEquals(inbound, "type", "tun") || !JsonBooleanIsTrue(inbound, "auto_route")) {
    return kSingBoxNoAutoRoute;
  }
  return {};
}

bool IsMatchingProxy(JsonObject* outbound, const std::string& wanted) {
  if (!JsonMemberHasNonEmptyString(outbound, "tag") ||
      !JsonMemberHasNonEmptyString(outbound, "type")) {
    return false;
  }
  const std::string type = JsonLowercaseString(outbound, "type");
  return !Contains(kNeverAProxy, type) && (Contains(kGenericProtocols, wanted) || type == wanted);
}

Complaint CheckOutbounds(JsonObject* root, const std::string& protocol) {
  JsonArray* outbounds = JsonArrayMember(root, "outbounds");
  if (outbounds == nullptr || json_array_get_length(outbounds) == 0) {
    return kSingBoxNoOutbound;
  }
  const std::string wanted = CanonicalSingBoxProtocol(protocol);
  for (guint index = 0; index < json_array_get_length(outbounds); ++index) {
    if (IsMatchingProxy(JsonObjectElement(outbounds, index), wanted)) {
      return {};
    }
  }
  return kSingBoxNoProxy;
}

}  // namespace

std::string CanonicalSingBoxProtocol(const std::string& protocol) {
  std::string lowered = LowercaseAscii(protocol);
  return lowered == "xray-reality" || lowered == "dravo" ? "vless" : lowered;
}

const char* SingBoxComplaint(const std::string& protocol, const JsonProfile& profile) {
  JsonObject* root = json_node_get_object(profile.root);
  if (const Complaint complaint = CheckForbidden(profile)) {
    return *complaint;
  }
  if (const Complaint complaint = CheckDns(root)) {
    return *complaint;
  }
  if (const Complaint complaint = CheckInbounds(root)) {
    return *complaint;
  }
  return CheckOutbounds(root, protocol).value_or(nullptr);
}

ValidationResult ValidateSingBox(const std::string& protocol, const std::string& rawConfig) {
  JsonProfile profile;
  if (ValidationResult parsed = ParseJsonProfile(rawConfig, &profile); !parsed.valid) {
    return parsed;
  }
  const char* complaint = SingBoxComplaint(protocol, profile);
  return complaint != nullptr ? Invalid(complaint) : Valid();
}

}  // namespace quorvex::linux_service
