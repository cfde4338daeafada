// SPDX-License-Identifier: Apache-2.0
#include "runtime/xray_servers.h"

#include <algorithm>

#include "killswitch/kill_switch.h"
#include "runtime/glib_ptr.h"
#include "runtime/json_text.h"
#include "validation/json_guards.h"

namespace quorvex::linux_service {
namespace {

void AddServers(JsonObject* settings, const char* member, UniqueTexts* hosts) {
  ForEachObject(JsonArrayMember(settings, member), [hosts](JsonObject* server) {
    AddServerHost(StringMemberText(server, "address"), hosts);
  });
}

void AddPeers(JsonObject* settings, UniqueTexts* hosts) {
  ForEachObject(JsonArrayMember(settings, "peers"), [hosts](JsonObject* peer) {
    AddServerHost(HostOfEndpoint(StringMemberText(peer, "endpoint")), hosts);
  });
}

using Servers = std::vector<NamedServer>;

// The member as an object, made when it is missing. Null when it is of another kind, which Xray
// refuses by itself.
JsonObject* ObjectMemberIfPossible(JsonObject* parent, const char* name) {
  if (json_object_has_member(parent, name) == FALSE) {
    json_object_set_object_member(parent, name, json_object_new());
  }
  return JsonObjectMember(parent, name);
}

bool HasAddressOf(const Servers& servers, GSocketFamily family) {
  return std::ranges::any_of(servers, [family](const NamedServer& server) {
    return std::ranges::any_of(server.addresses, [family](const std::string& text) {
      const GObjectPtr<GInetAddress> address(g_inet_address_new_from_string(text.c_str()));
      return address != nullptr && g_inet_address_get_family(address.get()) == family;
    });
  });
}

// Whether a strategy makes Xray look the name up itself and find one of these addresses. "AsIs"
// leaves the name to the machine's resolver, whose question enters the tunnel.
bool FindsAddress(const std::string& strategy, const Servers& servers) {
  if (!strategy.starts_with("useip") && !strategy.starts_with("forceip")) {
    return false;
  }
  if (strategy.ends_with("ipv4")) {
    return HasAddressOf(servers, G_SOCKET_FAMILY_IPV4);
  }
  return !strategy.ends_with("ipv6") || HasAddressOf(servers, G_SOCKET_FAMILY_IPV6);
}

void SetDomainStrategy(JsonObject* outbound, const Servers& servers) {
  JsonObject* stream = ObjectMemberIfPossible(outbound, "streamSettings");
  JsonObject* socket = stream == nullptr ? nullptr : ObjectMemberIfPossible(stream, "sockopt");
  if (socket != nullptr && !FindsAddress(JsonLowercaseString(socket, "domainStrategy"), servers)) {
    json_object_set_string_member(socket, "domainStrategy", "UseIP");
  }
}

Servers ServersOf(JsonObject* outbound, const Servers& servers) {
  UniqueTexts hosts;
  AddXrayOutboundHosts(outbound, &hosts);
  Servers named;
  for (const std::string& host : std::move(hosts).Take()) {
    if (const NamedServer* server = FindServer(servers, host); server != nullptr) {
      named.push_back(*server);
    }
  }
  return named;
}

bool IsLiteral(JsonNode* node) {
  return JSON_NODE_HOLDS_VALUE(node) && json_node_get_value_type(node) == G_TYPE_STRING &&
         IsLiteralAddress(json_node_get_string(node));
}

// Whether the profile gives this name addresses of its own. A name instead would have to be looked
// up in its turn.
bool HasOwnAddresses(JsonObject* hosts, const std::string& key) {
  JsonNode* node = json_object_get_member(hosts, key.c_str());
  if (node == nullptr || !JSON_NODE_HOLDS_ARRAY(node)) {
    return node != nullptr && IsLiteral(node);
  }
  JsonArray* array = json_node_get_array(node);
  const guint length = json_array_get_length(array);
  guint literal = 0;
  while (literal < length && IsLiteral(json_array_get_element(array, literal))) {
    ++literal;
  }
  return length > 0 && literal == length;
}

void AddHosts(JsonObject* hosts, const Servers& servers) {
  for (const NamedServer& server : servers) {
    const std::string full = "full:" + server.name;
    if (HasOwnAddresses(hosts, full) || HasOwnAddresses(hosts, server.name)) {
      continue;
    }
    json_object_remove_member(hosts, server.name.c_str());
    json_object_set_array_member(hosts, full.c_str(), NewStringArray(server.addresses));
  }
}

}  // namespace

void AddXrayOutboundHosts(JsonObject* outbound, UniqueTexts* hosts) {
  JsonObject* settings = JsonObjectMember(outbound, "settings");
  if (settings == nullptr) {
    return;
  }
  AddServers(settings, "vnext", hosts);
  AddServers(settings, "servers", hosts);
  AddServerHost(StringMemberText(settings, "address"), hosts);
  AddPeers(settings, hosts);
}

std::vector<std::string> XrayServerHosts(const std::string& configuration) {
  UniqueTexts hosts;
  const GObjectPtr<JsonParser> parser = ParseJson(configuration);
  JsonObject* root = parser == nullptr ? nullptr : RootObject(parser.get());
  if (root != nullptr) {
    ForEachObject(JsonArrayMember(root, "outbounds"),
                  [&hosts](JsonObject* outbound) { AddXrayOutboundHosts(outbound, &hosts); });
  }
  return std::move(hosts).Take();
}

void HandToXray(const Servers& servers, JsonObject* root) {
  ForEachObject(JsonArrayMember(root, "outbounds"), [&servers](JsonObject* outbound) {
    if (const Servers named = ServersOf(outbound, servers); !named.empty()) {
      SetDomainStrategy(outbound, named);
    }
  });
  JsonObject* dns = ObjectMemberIfPossible(root, "dns");
  JsonObject* hosts = dns == nullptr ? nullptr : ObjectMemberIfPossible(dns, "hosts");
  if (hosts != nullptr) {
    AddHosts(hosts, servers);
  }
}

}  // namespace quorvex::linux_service
