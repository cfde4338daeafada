// SPDX-License-Identifier: Apache-2.0
#include "runtime/leak_protection.h"

#include <charconv>
#include <cstdint>
#include <optional>

#include "killswitch/kill_switch.h"
#include "killswitch/sing_box_route.h"
#include "runtime/json_text.h"
#include "runtime/unique_texts.h"
#include "validation/rule_text.h"

namespace quorvex::linux_service {
namespace {

std::string WrittenByGLib(const std::string& text) {
  const GObjectPtr<GInetAddress> address(g_inet_address_new_from_string(text.c_str()));
  if (address == nullptr) {
    return text;
  }
  return GCharPtr(g_inet_address_to_string(address.get())).get();
}

// nft knows no scopes, and an IPv4 tail only behind "::" or "::ffff:".
bool IsReadableForNft(const std::string& address) {
  const bool isIpv6 = address.find(':') != std::string::npos;
  if (!isIpv6 || address.find_first_of(".%") == std::string::npos) {
    return true;
  }
  const std::size_t tail = address.rfind(':') + 1;
  const std::string head = LowercaseAscii(address.substr(0, tail));
  return address.find('%') == std::string::npos && (head == "::" || head == "::ffff:");
}

// Packets to an IPv4 address written as IPv6 leave as IPv4. GLib writes all such in one way.
void AddMappedIpv4(const std::string& address, UniqueTexts* addresses) {
  constexpr std::string_view kMapped = "::ffff:";
  const std::string written = WrittenByGLib(address);
  if (written.starts_with(kMapped) && written.find('.') != std::string::npos) {
    addresses->Add(written.substr(kMapped.size()));
  }
}

// A number, or a text with one, decimal or hexadecimal. Nothing when it is neither: sing-box knows
// more notations, but nobody writes a mark in them.
std::optional<std::uint32_t> ReadMark(JsonNode* node) {
  if (!JSON_NODE_HOLDS_VALUE(node)) {
    return std::nullopt;
  }
  std::string text = json_node_get_value_type(node) == G_TYPE_STRING
                         ? std::string(json_node_get_string(node))
                         : std::to_string(json_node_get_int(node));
  const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
  const char* begin = text.c_str() + (isHexadecimal ? 2 : 0);
  const char* end = text.c_str() + text.size();
  std::uint32_t mark = 0;
  const auto [rest, failure] = std::from_chars(begin, end, mark, isHexadecimal ? 16 : 10);
  const bool isWhole = failure == std::errc() && rest == end;
  const bool isOctal = !isHexadecimal && text.size() > 1 && text.front() == '0';
  return isWhole && !isOctal ? std::optional(mark) : std::nullopt;
}

// The mark of sing-box's own packets in the configuration that it was given.
std::optional<std::uint32_t> SingBoxMark(const std::string& rawConfig) {
  const GObjectPtr<JsonParser> parser = ParseJson(rawConfig);
  JsonObject* root = parser == nullptr ? nullptr : RootObject(parser.get());
  JsonNode* inbound = root == nullptr ? nullptr : OnlyElement(root, "inbounds");
  if (inbound == nullptr || !JSON_NODE_HOLDS_OBJECT(inbound)) {
    return std::nullopt;
  }
  JsonNode* mark =
      json_object_get_member(json_node_get_object(inbound), "auto_redirect_output_mark");
  if (mark == nullptr) {
    return kSingBoxDefaultMark;
  }
  const std::optional<std::uint32_t> own = ReadMark(mark);
  // Zero is how sing-box's configuration says "not set".
  return own == 0U ? std::optional(kSingBoxDefaultMark) : own;
}

}  // namespace

std::vector<std::string> AddressesToLetThrough(EngineKind engine, const std::string& rawConfig,
                                               const std::vector<NamedServer>& servers,
                                               const std::function<bool()>& cancelled) {
  UniqueTexts addresses;
  const NameLookUp lookUp = [&cancelled](const std::string& name) {
    return LookUpAddresses(name, cancelled);
  };
  for (std::string& address : CollectEndpointAddresses(engine, rawConfig, lookUp)) {
    addresses.Add(std::move(address));
  }
  for (const std::string& host : CollectServerHosts(engine, rawConfig)) {
    if (IsLiteralAddress(host)) {
      addresses.Add(host);
      AddMappedIpv4(host, &addresses);
    }
  }
  for (const NamedServer& server : servers) {
    for (const std::string& address : server.addresses) {
      addresses.Add(address);
    }
  }
  return std::move(addresses).Take();
}

void MakeReadableForNft(std::vector<std::string>* addresses) {
  if (addresses->size() < 2) {
    return;
  }
  std::vector<std::string> readable;
  for (const std::string& address : *addresses) {
    std::string written = IsReadableForNft(address) ? address : WrittenByGLib(address);
    if (IsReadableForNft(written)) {
      readable.push_back(std::move(written));
    }
  }
  if (!readable.empty()) {
    *addresses = std::move(readable);
  }
}

void OpenWayIntoTunnel(EngineKind engine, const std::string& rawConfig, LocalNetworks local) {
  if (engine != EngineKind::kSingBox) {
    return;
  }
  std::string error = "the configuration's packet mark cannot be read";
  const std::optional<std::uint32_t> mark = SingBoxMark(rawConfig);
  if (!mark || !AddSingBoxRoute(*mark, local, &error)) {
    g_log(nullptr, G_LOG_LEVEL_WARNING,
          "%s: the way into the sing-box tunnel could not be opened: %s",
          local == LocalNetworks::kInside ? "Traffic stays blocked"
                                          : "Earlier connections go on outside the tunnel",
          error.c_str());
  }
}

void CloseWayIntoTunnel() {
  std::string error;
  if (!RemoveSingBoxRoute(&error)) {
    g_log(nullptr, G_LOG_LEVEL_WARNING, "The way into the sing-box tunnel stays open: %s",
          error.c_str());
  }
}

}  // namespace quorvex::linux_service
