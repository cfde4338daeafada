// SPDX-License-Identifier: Apache-2.0
#include "validation/xray_value_judges.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "validation/json_guards.h"
#include "validation/rule_text.h"
#include "validation/xray_options.h"
#include "validation/xray_sentences.h"

namespace quorvex::linux_service {
namespace {

// What the rules and the service take for no proxy, and what is none to Xray beside that.
constexpr std::array<std::string_view, 3> kNeverAProxy = {"freedom", "blackhole", "dns"};
constexpr std::array<std::string_view, 3> kNeitherAProxy = {"direct", "block", "loopback"};
constexpr std::array<std::string_view, 4> kListFilePrefixes = {
    "ext:", "ext-ip:", "ext-domain:", "ext-site:"};
constexpr std::string_view kEnvironmentPrefix = "env:";

template <typename Table>
bool Contains(const Table& table, std::string_view text) {
  return std::ranges::find(table, text) != table.end();
}

const char* TextOf(JsonNode* node) {
  if (!JSON_NODE_HOLDS_VALUE(node) || json_node_get_value_type(node) != G_TYPE_STRING) {
    return nullptr;
  }
  return json_node_get_string(node);
}

// Whether `holds` is true of the value's text, or of a text among the value's elements.
template <typename Predicate>
bool AnyText(JsonNode* value, Predicate holds) {
  if (const char* text = TextOf(value); text != nullptr) {
    return holds(std::string_view(text));
  }
  if (!JSON_NODE_HOLDS_ARRAY(value)) {
    return false;
  }
  JsonArray* array = json_node_get_array(value);
  for (guint index = 0; index < json_array_get_length(array); ++index) {
    const char* text = TextOf(json_array_get_element(array, index));
    if (text != nullptr && holds(std::string_view(text))) {
      return true;
    }
  }
  return false;
}

bool NamesListFile(std::string_view matcher) {
  const std::string lowered =
      LowercaseAscii(matcher.substr(std::min(matcher.find_first_not_of('!'), matcher.size())));
  return std::ranges::any_of(kListFilePrefixes, [&lowered](std::string_view prefix) {
    return lowered.starts_with(prefix);
  });
}

bool AnyPieceNamesListFile(std::string_view matchers) {
  return std::ranges::any_of(SplitAtCommas(matchers), NamesListFile);
}

bool IsPlainAscii(std::string_view text) {
  return std::ranges::all_of(text, [](char byte) { return g_ascii_isprint(byte); });
}

bool IsRefusedNetwork(std::string_view network) {
  const std::string lowered = LowercaseAscii(network);
  return !IsPlainAscii(network) || lowered == "unix" || lowered == "xdrive";
}

// The protocol of the outbound that the rules and the service take for the proxy.
std::string ProxyProtocol(JsonArray* outbounds) {
  for (guint index = 0; index < json_array_get_length(outbounds); ++index) {
    JsonObject* outbound = JsonObjectElement(outbounds, index);
    std::string protocol = outbound == nullptr ? "" : JsonLowercaseString(outbound, "protocol");
    if (!protocol.empty() && !Contains(kNeverAProxy, protocol) &&
        JsonMemberHasNonEmptyString(outbound, "tag")) {
      return protocol;
    }
  }
  return {};
}

// Of the objects in a list.
const char* ComplaintAboutElements(JsonArray* array, const JsonOptionTable& table) {
  for (guint index = 0; index < json_array_get_length(array); ++index) {
    JsonObject* element = JsonObjectElement(array, index);
    const char* complaint = element == nullptr ? nullptr : ComplaintAboutOptions(element, table);
    if (complaint != nullptr) {
      return complaint;
    }
  }
  return nullptr;
}

}  // namespace

const char* ComplaintAboutXrayOutbounds(JsonNode* outbounds) {
  if (!JSON_NODE_HOLDS_ARRAY(outbounds)) {
    return nullptr;
  }
  JsonArray* array = json_node_get_array(outbounds);
  if (Contains(kNeitherAProxy, ProxyProtocol(array))) {
    return kXrayNoProxy;
  }
  return ComplaintAboutElements(array, kXrayOutboundOptions);
}

const char* ComplaintAboutXrayProtocol(JsonNode* protocol) {
  const char* text = TextOf(protocol);
  const std::string lowered = text == nullptr ? "" : LowercaseAscii(text);
  const auto& known = kXrayOutboundOptions.variants;
  return std::ranges::find(known, lowered, &JsonVariant::selected) != known.end() ? nullptr
                                                                                  : kXrayNoProxy;
}

const char* ComplaintAboutXrayNetwork(JsonNode* network) {
  return AnyText(network, IsRefusedNetwork) ? kXrayExternalResource : nullptr;
}

const char* ComplaintAboutXrayMatchers(JsonNode* matchers) {
  return AnyText(matchers, AnyPieceNamesListFile) ? kXrayExternalResource : nullptr;
}

const char* ComplaintAboutXrayAddress(JsonNode* address) {
  const bool refused =
      AnyText(address, [](std::string_view text) { return text.starts_with(kEnvironmentPrefix); });
  return refused ? kXrayExternalResource : nullptr;
}

const char* ComplaintAboutXrayHosts(JsonNode* hosts) {
  if (!JSON_NODE_HOLDS_OBJECT(hosts)) {
    return nullptr;
  }
  JsonObjectIter iterator;
  const char* name = nullptr;
  JsonNode* addresses = nullptr;
  json_object_iter_init_ordered(&iterator, json_node_get_object(hosts));
  while (json_object_iter_next_ordered(&iterator, &name, &addresses) != FALSE) {
    if (NamesListFile(name) || ComplaintAboutXrayAddress(addresses) != nullptr) {
      return kXrayExternalResource;
    }
  }
  return nullptr;
}

const char* ComplaintAboutXrayDnsServers(JsonNode* servers) {
  if (const char* complaint = ComplaintAboutXrayAddress(servers); complaint != nullptr) {
    return complaint;
  }
  return JSON_NODE_HOLDS_ARRAY(servers)
             ? ComplaintAboutElements(json_node_get_array(servers), kXrayDnsServerOptions)
             : nullptr;
}

const char* ComplaintAboutXrayWireGuard(JsonNode* settings) {
  if (!JSON_NODE_HOLDS_OBJECT(settings)) {
    return nullptr;
  }
  JsonObject* object = json_node_get_object(settings);
  if (const char* complaint = ComplaintAboutOptions(object, kXrayWireGuardOptions);
      complaint != nullptr) {
    return complaint;
  }
  return JsonBooleanIsTrue(object, "noKernelTun") ? nullptr : kXrayNotOneInbound;
}

const char* ComplaintAboutXrayTproxy(JsonNode* tproxy) {
  const char* text = TextOf(tproxy);
  const bool off = text == nullptr || *text == '\0' || LowercaseAscii(text) == "off";
  return off ? nullptr : kXrayNotOneInbound;
}

}  // namespace quorvex::linux_service
