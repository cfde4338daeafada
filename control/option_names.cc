// SPDX-License-Identifier: Apache-2.0
#include "control/option_names.h"

#include <algorithm>
#include <array>
#include <string>

#include "validation/openvpn_names.h"
#include "validation/openvpn_options.h"
#include "validation/rule_text.h"
#include "validation/wireguard_rules.h"

namespace quorvex::control {
namespace {

using linux_service::LowercaseAscii;

// wg's and wg-quick's, permitted or not.
constexpr std::array<std::string_view, 18> kWireGuardNames = {
    "[interface]", "[peer]",     "privatekey", "address",      "dns",        "mtu",
    "listenport",  "table",      "fwmark",     "preup",        "postup",     "predown",
    "postdown",    "saveconfig", "publickey",  "presharedkey", "allowedips", "endpoint"};
constexpr std::string_view kKeepalive = "persistentkeepalive";

// OpenVPN's block of several lines; no directive, so in none of the tables.
constexpr std::string_view kConnectionBlock = "connection";

constexpr std::size_t kLongestJsonName = 48;

bool IsNameByte(char byte) {
  return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
         (byte >= '0' && byte <= '9') || byte == '_';
}

}  // namespace

bool IsWireGuardName(std::string_view word) {
  const std::string lowered = LowercaseAscii(word);
  return std::ranges::find(kWireGuardNames, lowered) != kWireGuardNames.end() ||
         lowered == kKeepalive || linux_service::IsAmneziaInterfaceKey(lowered);
}

bool IsOpenVpnName(std::string_view word) {
  if (word.starts_with('<') && word.ends_with('>')) {
    word = word.substr(1, word.size() - 2);
    word.remove_prefix(word.starts_with('/') ? 1 : 0);
  }
  const std::string lowered = LowercaseAscii(word.substr(word.starts_with("--") ? 2 : 0));
  return linux_service::FindOpenVpnOption(lowered) != nullptr ||
         linux_service::IsForbiddenOpenVpnDirective(lowered) || lowered == kConnectionBlock;
}

bool IsJsonName(std::string_view name) {
  return !name.empty() && name.size() <= kLongestJsonName && std::ranges::all_of(name, IsNameByte);
}

}  // namespace quorvex::control
