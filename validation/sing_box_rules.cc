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
constexpr const char* kExperimental =
    "Sing-box experimental services are not permitted in VPN profiles.";
constexpr const char* kLogFile = "Sing-box profiles may not write logs to files.";
constexpr const char* kFileMember =
    "Sing-box profiles may not reference privileged certificate files.";
constexpr const char* kExternalResource =
    "Sing-box profiles may not load external resources as root.";
constexpr const char* kNoDns = "Sing-box profiles require app-owned remote DNS configuration.";
constexpr const char* kNoDnsServer = "Sing-box profiles require at least one remote DNS server.";
constexpr const char* kDnsNotStructured = "Sing-box DNS servers must use structured entries.";
constexpr const char* kDnsIncomplete = "The Sing-box DNS server is incomplete.";
constexpr const char* kDnsNotRemote = "Sing-box DNS must use a remote network server type.";
constexpr const char* kNoInbound = "Sing-box profiles must contain a TUN inbound.";
constexpr const char* kNotOneInbound =
    "Sing-box profiles must contain exactly one app-owned TUN inbound.";
constexpr const char* kBadInbound = "The Sing-box TUN inbound is invalid.";
constexpr const char* kNoAutoRoute = "Sing-box profiles require an auto-route TUN inbound.";
constexpr const char* kNoOutbound = "Sing-box profiles must contain at least one outbound.";
constexpr const char* kNoProxy =
    "The Sing-box configuration does not contain a tagged proxy outbound matching the selected VPN "
    "protocol.";

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

// The outbound type that the selected protocol must find.
std::string CanonicalSingBoxProtocol(const std::string& protocol) {
  std::string lowered = LowercaseAscii(protocol);
  return lowered == "xray-reality" || lowered == "dravo" ? "vless" : lowered;
}

Complaint CheckForbidden(JsonNode* rootNode) {
  JsonObject* root = json_node_get_object(rootNode);
  if (json_object_has_member(root, "experimental") != FALSE) {
    return kExperimental;
  }
  if (JsonMemberHasNonEmptyString(JsonObjectMember(root, "log"), "output")) {
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

Complaint CheckDnsServer(JsonObject* server) {
  if (server == nullptr) {
    return kDnsNotStructured;
  }
  if (!JsonMemberHasNonEmptyString(server, "type") ||
      !JsonMemberHasNonEmptyString(server, "server")) {
    return kDnsIncomplete;
  }
  if (!Contains(kRemoteDnsTypes, JsonLowercaseString(server, "type"))) {
    return kDnsNotRemote;
  }
  return {};
}

Complaint CheckDns(JsonObject* root) {
  JsonObject* dns = JsonObjectMember(root, "dns");
  if (dns == nullptr) {
    return kNoDns;
  }
  JsonArray* servers = JsonArrayMember(dns, "servers");
  if (servers == nullptr || json_array_get_length(servers) == 0) {
    return kNoDnsServer;
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
    return kNoInbound;
  }
  if (json_array_get_length(inbounds) != 1) {
    return kNotOneInbound;
  }
  JsonObject* inbound = JsonObjectElement(inbounds, 0);
  if (inbound == nullptr) {
    return kBadInbound;
  }
  if (!JsonStringEquals(inbound, "type", "tun") || !JsonBooleanIsTrue(inbound, "auto_route")) {
    return kNoAutoRoute;
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
    return kNoOutbound;
  }
  const std::string wanted = CanonicalSingBoxProtocol(protocol);
  for (guint index = 0; index < json_array_get_length(outbounds); ++index) {
    if (IsMatchingProxy(JsonObjectElement(outbounds, index), wanted)) {
      return {};
    }
  }
  return kNoProxy;
}

Complaint FirstComplaint(JsonNode* rootNode, const std::string& protocol) {
  JsonObject* root = json_node_get_object(rootNode);
  if (const Complaint complaint = CheckForbidden(rootNode)) {
    return complaint;
  }
  if (const Complaint complaint = CheckDns(root)) {
    return complaint;
  }
  if (const Complaint complaint = CheckInbounds(root)) {
    return complaint;
  }
  return CheckOutbounds(root, protocol);
}

}  // namespace

ValidationResult ValidateSingBox(const std::string& protocol, const std::string& rawConfig) {
  GObjectPtr<JsonParser> parser;
  JsonObject* root = nullptr;
  if (ValidationResult parsed = ParseJsonObject(rawConfig, &parser, &root); !parsed.valid) {
    return parsed;
  }
  const Complaint complaint = FirstComplaint(json_parser_get_root(parser.get()), protocol);
  return complaint ? Invalid(*complaint) : Valid();
}

}  // namespace quorvex::linux_service
