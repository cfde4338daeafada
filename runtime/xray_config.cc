// SPDX-License-Identifier: Apache-2.0
#include "runtime/xray_config.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "runtime/constants.h"
#include "runtime/json_text.h"

namespace quorvex::linux_service {
namespace {

constexpr char kMalformed[] = "Unable to normalize the Xray configuration.";
constexpr char kInvalidRoot[] = "The Xray configuration root is invalid.";
constexpr char kNoInbound[] = "The Xray TUN inbound is unavailable.";
constexpr char kInvalidInbound[] = "The Xray TUN inbound is invalid.";
constexpr char kNoProxy[] = "The Xray proxy outbound is unavailable.";
constexpr char kNotSerialized[] = "Unable to serialize the normalized Xray configuration.";

constexpr char kInboundTag[] = "quorvex-tun";
constexpr std::array<std::string_view, 3> kNoProxyProtocols = {"freedom", "blackhole", "dns"};

// What is added to the profile's own text, generously.
constexpr std::size_t kAddedText = 1024;

bool Fail(const char* sentence, std::string* error) {
  *error = sentence;
  return false;
}

// The addresses differ from sing-box's, so that the two never share one.
void TakeOverInbound(JsonObject* inbound) {
  json_object_set_string_member(inbound, "tag", kInboundTag);
  JsonObject* settings = ObjectMemberOrNew(inbound, "settings");
  json_object_set_string_member(settings, "name", kXrayInterface);
  SetStrings(settings, "gateway", {"172.20.0.1/30", "fdfe:dcba:9877::1/126"});
  SetStrings(settings, "autoSystemRoutingTable", {"0.0.0.0/0", "::/0"});
  json_object_set_string_member(settings, "autoOutboundsInterface", "auto");
}

bool IsProxyProtocol(const std::string& protocol) {
  return std::ranges::find(kNoProxyProtocols, protocol) == kNoProxyProtocols.end();
}

void RouteThrough(JsonObject* root, const char* proxy) {
  JsonObject* rule = json_object_new();
  json_object_set_string_member(rule, "type", "field");
  SetStrings(rule, "inboundTag", {kInboundTag});
  json_object_set_string_member(rule, "outboundTag", proxy);
  JsonArray* rules = json_array_new();
  json_array_add_object_element(rules, rule);
  json_object_set_array_member(ObjectMemberOrNew(root, "routing"), "rules", rules);
}

}  // namespace

bool NormalizeXray(const std::string& configuration, std::string* normalized, std::string* error) {
  const GObjectPtr<JsonParser> parser = ParseJson(configuration);
  if (parser == nullptr) {
    return Fail(kMalformed, error);
  }
  JsonObject* root = RootObject(parser.get());
  if (root == nullptr) {
    return Fail(kInvalidRoot, error);
  }
  JsonNode* inbound = OnlyElement(root, "inbounds");
  if (inbound == nullptr) {
    return Fail(kNoInbound, error);
  }
  if (!JSON_NODE_HOLDS_OBJECT(inbound)) {
    return Fail(kInvalidInbound, error);
  }
  TakeOverInbound(json_node_get_object(inbound));
  const char* proxy = FirstOutboundTag(root, "protocol", IsProxyProtocol);
  if (proxy == nullptr) {
    return Fail(kNoProxy, error);
  }
  RouteThrough(root, proxy);
  return WriteJson(json_parser_get_root(parser.get()), configuration.size() + kAddedText,
                   normalized) ||
         Fail(kNotSerialized, error);
}

}  // namespace quorvex::linux_service
