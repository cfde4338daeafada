// SPDX-License-Identifier: Apache-2.0
#include "runtime/sing_box_servers.h"

#include <algorithm>
#include <utility>

#include "runtime/json_text.h"
#include "validation/json_guards.h"
#include "validation/rule_text.h"

namespace quorvex::linux_service {
namespace {

using Servers = std::vector<NamedServer>;

// A tag that none of the profile's DNS servers has.
std::string UnusedDnsTag(JsonArray* dnsServers) {
  std::string tag = "quorvex-servers";
  bool taken = true;
  while (taken) {
    taken = false;
    ForEachObject(dnsServers, [&](JsonObject* server) {
      taken = taken || JsonStringEquals(server, "tag", tag.c_str());
    });
    if (taken) {
      tag += '+';
    }
  }
  return tag;
}

// The profile's own resolver keeps its other wishes, but its server is one that is asked through
// the tunnel.
void SetDomainResolver(JsonObject* dialer, const std::string& tag) {
  if (JsonObject* own = JsonObjectMember(dialer, "domain_resolver"); own != nullptr) {
    json_object_set_string_member(own, "server", tag.c_str());
  } else {
    json_object_set_string_member(dialer, "domain_resolver", tag.c_str());
  }
}

void AddHostsServer(JsonArray* dnsServers, const std::string& tag, const Servers& servers) {
  JsonObject* predefined = json_object_new();
  for (const NamedServer& server : servers) {
    json_object_set_array_member(predefined, server.name.c_str(), NewStringArray(server.addresses));
  }
  JsonObject* hosts = json_object_new();
  json_object_set_string_member(hosts, "type", "hosts");
  json_object_set_string_member(hosts, "tag", tag.c_str());
  json_object_set_object_member(hosts, "predefined", predefined);
  json_array_add_object_element(dnsServers, hosts);
}

// Applications that ask for a server's name get the same answer; through the tunnel the question
// would wait for the tunnel.
void PutRuleFirst(JsonObject* dns, const std::string& tag, const Servers& servers) {
  JsonArray* names = json_array_new();
  for (const NamedServer& server : servers) {
    json_array_add_string_element(names, LowercaseAscii(server.name).c_str());
  }
  JsonObject* rule = json_object_new();
  json_object_set_array_member(rule, "domain", names);
  json_object_set_string_member(rule, "server", tag.c_str());
  JsonArray* rules = json_array_new();
  json_array_add_object_element(rules, rule);
  if (JsonArray* own = JsonArrayMember(dns, "rules"); own != nullptr) {
    for (guint index = 0; index < json_array_get_length(own); ++index) {
      json_array_add_element(rules, json_array_dup_element(own, index));
    }
  }
  json_object_set_array_member(dns, "rules", rules);
}

// An outbound names one server, a WireGuard endpoint one for each peer.
void AddHostsOf(JsonObject* dialer, UniqueTexts* hosts) {
  AddServerHost(StringMemberText(dialer, "server"), hosts);
  ForEachObject(JsonArrayMember(dialer, "peers"), [hosts](JsonObject* peer) {
    AddServerHost(StringMemberText(peer, "address"), hosts);
  });
}

bool IsToOneOf(const Servers& servers, JsonObject* dialer) {
  UniqueTexts hosts;
  AddHostsOf(dialer, &hosts);
  return std::ranges::any_of(std::move(hosts).Take(), [&servers](const std::string& host) {
    return FindServer(servers, host) != nullptr;
  });
}

template <typename Visitor>
void ForEachDialer(JsonObject* root, Visitor visit) {
  ForEachObject(JsonArrayMember(root, "outbounds"), visit);
  ForEachObject(JsonArrayMember(root, "endpoints"), visit);
}

}  // namespace

std::vector<std::string> SingBoxServerHosts(const std::string& configuration) {
  UniqueTexts hosts;
  const GObjectPtr<JsonParser> parser = ParseJson(configuration);
  JsonObject* root = parser == nullptr ? nullptr : RootObject(parser.get());
  if (root != nullptr) {
    ForEachDialer(root, [&hosts](JsonObject* dialer) { AddHostsOf(dialer, &hosts); });
  }
  return std::move(hosts).Take();
}

void HandToSingBox(const Servers& servers, JsonObject* root) {
  JsonObject* dns = JsonObjectMember(root, "dns");
  JsonArray* dnsServers = dns == nullptr ? nullptr : JsonArrayMember(dns, "servers");
  if (dnsServers == nullptr) {
    return;
  }
  const std::string tag = UnusedDnsTag(dnsServers);
  ForEachDialer(root, [&](JsonObject* dialer) {
    if (IsToOneOf(servers, dialer)) {
      SetDomainResolver(dialer, tag);
    }
  });
  AddHostsServer(dnsServers, tag, servers);
  PutRuleFirst(dns, tag, servers);
}

}  // namespace quorvex::linux_service
