// SPDX-License-Identifier: Apache-2.0
#include "runtime/sing_box_servers.h"

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
void SetDomainResolver(JsonObject* outbound, const std::string& tag) {
  if (JsonObject* own = JsonObjectMember(outbound, "domain_resolver"); own != nullptr) {
    json_object_set_string_member(own, "server", tag.c_str());
  } else {
    json_object_set_string_member(outbound, "domain_resolver", tag.c_str());
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

}  // namespace

void HandToSingBox(const Servers& servers, JsonObject* root) {
  JsonObject* dns = JsonObjectMember(root, "dns");
  JsonArray* dnsServers = dns == nullptr ? nullptr : JsonArrayMember(dns, "servers");
  if (dnsServers == nullptr) {
    return;
  }
  const std::string tag = UnusedDnsTag(dnsServers);
  ForEachObject(JsonArrayMember(root, "outbounds"), [&](JsonObject* outbound) {
    if (JsonMemberHasNonEmptyString(outbound, "server") &&
        FindServer(servers, json_object_get_string_member(outbound, "server")) != nullptr) {
      SetDomainResolver(outbound, tag);
    }
  });
  AddHostsServer(dnsServers, tag, servers);
  PutRuleFirst(dns, tag, servers);
}

}  // namespace quorvex::linux_service
