// SPDX-License-Identifier: Apache-2.0
#include "killswitch/endpoint_hosts.h"

#include <json-glib/json-glib.h>

#include <algorithm>
#include <sstream>

#include "runtime/glib_ptr.h"

namespace quorvex::linux_service {
namespace {

constexpr std::size_t kLongestHost = 255;
constexpr char kTrimSet[] = " \t\r\n";

std::string TrimAscii(const std::string& text) {
  const std::size_t first = text.find_first_not_of(kTrimSet);
  if (first == std::string::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(kTrimSet) - first + 1);
}

std::string LowercaseAscii(std::string text) {
  std::ranges::transform(text, text.begin(), [](char byte) { return g_ascii_tolower(byte); });
  return text;
}

void AddHost(std::vector<std::string>* hosts, const std::string& candidate) {
  std::string host = TrimAscii(candidate);
  if (host.empty() || host.size() > kLongestHost ||
      std::ranges::find(*hosts, host) != hosts->end()) {
    return;
  }
  hosts->push_back(std::move(host));
}

void AddStringMember(JsonObject* object, const char* name, std::vector<std::string>* hosts) {
  JsonNode* node = json_object_get_member(object, name);
  if (node != nullptr && JSON_NODE_HOLDS_VALUE(node) &&
      json_node_get_value_type(node) == G_TYPE_STRING) {
    AddHost(hosts, json_node_get_string(node));
  }
}

JsonObject* ObjectElement(JsonArray* array, guint index) {
  JsonNode* node = json_array_get_element(array, index);
  return JSON_NODE_HOLDS_OBJECT(node) ? json_node_get_object(node) : nullptr;
}

// The member as an array; null when there is none of that type.
JsonArray* ArrayMember(JsonObject* object, const char* name) {
  JsonNode* node = json_object_get_member(object, name);
  return node != nullptr && JSON_NODE_HOLDS_ARRAY(node) ? json_node_get_array(node) : nullptr;
}

void CollectXrayHostsFromArray(JsonObject* settings, const char* member,
                               std::vector<std::string>* hosts) {
  JsonArray* array = ArrayMember(settings, member);
  for (guint index = 0; array != nullptr && index < json_array_get_length(array); ++index) {
    if (JsonObject* server = ObjectElement(array, index); server != nullptr) {
      AddStringMember(server, "address", hosts);
    }
  }
}

void CollectXrayHosts(JsonObject* outbound, std::vector<std::string>* hosts) {
  JsonNode* settings = json_object_get_member(outbound, "settings");
  if (settings != nullptr && JSON_NODE_HOLDS_OBJECT(settings)) {
    CollectXrayHostsFromArray(json_node_get_object(settings), "vnext", hosts);
    CollectXrayHostsFromArray(json_node_get_object(settings), "servers", hosts);
  }
}

void CollectJsonHosts(EngineKind kind, const std::string& configuration,
                      std::vector<std::string>* hosts) {
  const GObjectPtr<JsonParser> parser(json_parser_new());
  if (json_parser_load_from_data(parser.get(), configuration.data(),
                                 static_cast<gssize>(configuration.size()), nullptr) == FALSE) {
    return;
  }
  JsonNode* root = json_parser_get_root(parser.get());
  if (root == nullptr || !JSON_NODE_HOLDS_OBJECT(root)) {
    return;
  }
  JsonArray* outbounds = ArrayMember(json_node_get_object(root), "outbounds");
  for (guint index = 0; outbounds != nullptr && index < json_array_get_length(outbounds); ++index) {
    JsonObject* outbound = ObjectElement(outbounds, index);
    if (outbound == nullptr) {
      continue;
    }
    if (kind == EngineKind::kSingBox) {
      AddStringMember(outbound, "server", hosts);
    } else {
      CollectXrayHosts(outbound, hosts);
    }
  }
}

// The host of "host:port", "[v6]:port" or a bare host. An IPv6 address without brackets is kept
// whole: where its port would begin cannot be told.
std::string HostOfEndpoint(const std::string& value) {
  if (value.starts_with('[')) {
    const std::size_t end = value.find(']');
    return end == std::string::npos ? std::string() : value.substr(1, end - 1);
  }
  const bool oneColon = std::ranges::count(value, ':') == 1;
  return oneColon ? value.substr(0, value.find(':')) : value;
}

void AddWireGuardLine(const std::string& line, std::vector<std::string>* hosts) {
  const std::size_t equals = line.find('=');
  if (equals != std::string::npos &&
      LowercaseAscii(TrimAscii(line.substr(0, equals))) == "endpoint") {
    AddHost(hosts, HostOfEndpoint(TrimAscii(line.substr(equals + 1))));
  }
}

void AddOpenVpnLine(const std::string& line, std::vector<std::string>* hosts) {
  std::istringstream words(line);
  std::string directive;
  std::string host;
  words >> directive >> host;
  if (LowercaseAscii(directive) == "remote") {
    AddHost(hosts, host);
  }
}

template <typename LineReader>
void CollectLineHosts(const std::string& configuration, LineReader addLine,
                      std::vector<std::string>* hosts) {
  std::istringstream lines(configuration);
  for (std::string text; std::getline(lines, text);) {
    const std::string line = TrimAscii(text);
    if (!line.empty() && !line.starts_with('#') && !line.starts_with(';')) {
      addLine(line, hosts);
    }
  }
}

}  // namespace

std::vector<std::string> CollectEndpointHosts(EngineKind kind, const std::string& configuration) {
  std::vector<std::string> hosts;
  switch (kind) {
    case EngineKind::kSingBox:
    case EngineKind::kXray:
      CollectJsonHosts(kind, configuration, &hosts);
      break;
    case EngineKind::kWireGuard:
      CollectLineHosts(configuration, AddWireGuardLine, &hosts);
      break;
    case EngineKind::kOpenVpn:
      CollectLineHosts(configuration, AddOpenVpnLine, &hosts);
      break;
    case EngineKind::kUnsupported:
      break;
  }
  return hosts;
}

}  // namespace quorvex::linux_service
