// SPDX-License-Identifier: Apache-2.0
#include "runtime/sing_box_config.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "runtime/constants.h"
#include "runtime/json_text.h"
#include "validation/engine_rules.h"
#include "validation/json_guards.h"

namespace quorvex::linux_service {
namespace {

constexpr char kMalformed[] = "Unable to normalize the Sing-box configuration.";
constexpr char kInvalidRoot[] = "The Sing-box configuration root is invalid.";
constexpr char kInvalidInbound[] = "The Sing-box TUN inbound is invalid.";
constexpr char kNoProxy[] = "The selected Sing-box proxy outbound is unavailable.";
constexpr char kNotSerialized[] = "Unable to serialize the normalized Sing-box configuration.";

constexpr gint64 kRouteTable = 2022;
constexpr gint64 kRulePriority = 9000;

// What would let some traffic go past the tunnel, or the tunnel lie elsewhere.
constexpr std::array kRemovedMembers = {
    "route_address",
    "inet4_route_address",
    "inet6_route_address",
    "route_exclude_address",
    "inet4_route_exclude_address",
    "inet6_route_exclude_address",
    "route_address_set",
    "route_exclude_address_set",
    "include_interface",
    "exclude_interface",
    "include_uid",
    "include_uid_range",
    "exclude_uid",
    "exclude_uid_range",
    "include_package",
    "exclude_package",
    "include_android_user",
    "include_mac_address",
    "exclude_mac_address",
    "netns",
};

constexpr std::array<std::string_view, 3> kNoProxyTypes = {"dns", "block", "direct"};

// What is added to the profile's own text, generously.
constexpr std::size_t kAddedText = 1024;

bool Fail(const char* sentence, std::string* error) {
  *error = sentence;
  return false;
}

void TakeOverInbound(JsonObject* inbound) {
  json_object_set_string_member(inbound, "tag", "quorvex-tun");
  json_object_set_string_member(inbound, "interface_name", kSingBoxInterface);
  SetStrings(inbound, "address", {"172.19.0.1/30", "fdfe:dcba:9876::1/126"});
  for (const char* name : {"auto_route", "strict_route", "auto_redirect"}) {
    json_object_set_boolean_member(inbound, name, TRUE);
  }
  json_object_set_int_member(inbound, "iproute2_table_index", kRouteTable);
  json_object_set_int_member(inbound, "iproute2_rule_index", kRulePriority);
  for (const char* name : kRemovedMembers) {
    // A member that is not there is no fault for json-glib.
    json_object_remove_member(inbound, name);
  }
}

const char* ProxyTag(JsonObject* root, const std::string& protocol) {
  const std::string key = CanonicalSingBoxProtocol(protocol);
  const bool anyProxy = key == "singbox" || key == "sing-box";
  return FirstOutboundTag(root, "type", [&key, anyProxy](const std::string& type) {
    const bool isProxy = std::ranges::find(kNoProxyTypes, type) == kNoProxyTypes.end();
    return isProxy && (anyProxy || type == key);
  });
}

void SetRules(JsonObject* route) {
  JsonObject* sniff = json_object_new();
  json_object_set_string_member(sniff, "action", "sniff");
  JsonObject* hijack = json_object_new();
  json_object_set_string_member(hijack, "protocol", "dns");
  json_object_set_string_member(hijack, "action", "hijack-dns");
  JsonArray* rules = json_array_new();
  json_array_add_object_element(rules, sniff);
  json_array_add_object_element(rules, hijack);
  json_object_set_array_member(route, "rules", rules);
}

void RouteThrough(JsonObject* root, const char* proxy) {
  JsonObject* route = ObjectMemberOrNew(root, "route");
  json_object_set_boolean_member(route, "auto_detect_interface", TRUE);
  json_object_set_string_member(route, "final", proxy);
  SetRules(route);
}

void ResolveThrough(JsonObject* root, const char* proxy) {
  JsonObject* dns = JsonObjectMember(root, "dns");
  JsonArray* servers = dns == nullptr ? nullptr : JsonArrayMember(dns, "servers");
  const guint count = servers == nullptr ? 0 : json_array_get_length(servers);
  for (guint index = 0; index < count; ++index) {
    if (JsonObject* server = JsonObjectElement(servers, index); server != nullptr) {
      json_object_set_string_member(server, "detour", proxy);
    }
  }
}

}  // namespace

bool NormalizeSingBox(const std::string& protocol, const std::string& configuration,
                      std::string* normalized, std::string* error) {
  const GObjectPtr<JsonParser> parser = ParseJson(configuration);
  if (parser == nullptr) {
    return Fail(kMalformed, error);
  }
  JsonObject* root = RootObject(parser.get());
  if (root == nullptr) {
    return Fail(kInvalidRoot, error);
  }
  JsonNode* inbound = OnlyElement(root, "inbounds");
  if (inbound == nullptr || !JSON_NODE_HOLDS_OBJECT(inbound)) {
    return Fail(kInvalidInbound, error);
  }
  TakeOverInbound(json_node_get_object(inbound));
  const char* proxy = ProxyTag(root, protocol);
  if (proxy == nullptr) {
    return Fail(kNoProxy, error);
  }
  RouteThrough(root, proxy);
  ResolveThrough(root, proxy);
  return WriteJson(json_parser_get_root(parser.get()), configuration.size() + kAddedText,
                   normalized) ||
         Fail(kNotSerialized, error);
}

}  // namespace quorvex::linux_service
