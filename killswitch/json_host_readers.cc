// SPDX-License-Identifier: Apache-2.0
#include <json-glib/json-glib.h>

#include "killswitch/host_readers.h"
#include "runtime/glib_ptr.h"

namespace quorvex::linux_service {
namespace {

// Calls `visit` with each object in the array `member`; elements of other types are skipped, and
// so is a member that is no array.
template <typename Visitor>
void ForEachObject(JsonObject* parent, const char* member, Visitor visit) {
  JsonNode* node = json_object_get_member(parent, member);
  if (node == nullptr || !JSON_NODE_HOLDS_ARRAY(node)) {
    return;
  }
  JsonArray* array = json_node_get_array(node);
  for (guint index = 0; index < json_array_get_length(array); ++index) {
    JsonNode* element = json_array_get_element(array, index);
    if (JSON_NODE_HOLDS_OBJECT(element)) {
      visit(json_node_get_object(element));
    }
  }
}

template <typename Visitor>
void ForEachOutbound(const std::string& configuration, Visitor visit) {
  const GObjectPtr<JsonParser> parser(json_parser_new());
  if (json_parser_load_from_data(parser.get(), configuration.data(),
                                 static_cast<gssize>(configuration.size()), nullptr) == FALSE) {
    return;
  }
  JsonNode* root = json_parser_get_root(parser.get());
  if (root != nullptr && JSON_NODE_HOLDS_OBJECT(root)) {
    ForEachObject(json_node_get_object(root), "outbounds", visit);
  }
}

void AddStringMember(JsonObject* object, const char* member, HostList* hosts) {
  JsonNode* node = json_object_get_member(object, member);
  if (node != nullptr && JSON_NODE_HOLDS_VALUE(node) &&
      json_node_get_value_type(node) == G_TYPE_STRING) {
    AddHost(hosts, json_node_get_string(node));
  }
}

void CollectXrayHostsFromArray(JsonObject* settings, const char* member, HostList* hosts) {
  ForEachObject(settings, member,
                [hosts](JsonObject* server) { AddStringMember(server, "address", hosts); });
}

void CollectXrayHosts(JsonObject* outbound, HostList* hosts) {
  JsonNode* settings = json_object_get_member(outbound, "settings");
  if (settings != nullptr && JSON_NODE_HOLDS_OBJECT(settings)) {
    CollectXrayHostsFromArray(json_node_get_object(settings), "vnext", hosts);
    CollectXrayHostsFromArray(json_node_get_object(settings), "servers", hosts);
  }
}

}  // namespace

void ReadSingBoxHosts(const std::string& configuration, HostList* hosts) {
  ForEachOutbound(configuration,
                  [hosts](JsonObject* outbound) { AddStringMember(outbound, "server", hosts); });
}

void ReadXrayHosts(const std::string& configuration, HostList* hosts) {
  ForEachOutbound(configuration,
                  [hosts](JsonObject* outbound) { CollectXrayHosts(outbound, hosts); });
}

}  // namespace quorvex::linux_service
