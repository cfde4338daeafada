// SPDX-License-Identifier: Apache-2.0
#include "control/option_names.h"

#include <algorithm>
#include <array>
#include <string>

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

// What a profile may not have, or only the service decides; the permitted ones are in a table.
constexpr std::array<std::string_view, 45> kFurtherOpenVpnNames = {"up",
                                                                   "down",
                                                                   "route-up",
                                                                   "route-pre-down",
                                                                   "ipchange",
                                                                   "learn-address",
                                                                   "tls-verify",
                                                                   "auth-user-pass-verify",
                                                                   "plugin",
                                                                   "script-security",
                                                                   "management",
                                                                   "config",
                                                                   "capath",
                                                                   "setenv",
                                                                   "setenv-safe",
                                                                   "route-nopull",
                                                                   "route-noexec",
                                                                   "ifconfig-noexec",
                                                                   "pull-filter",
                                                                   "dev-node",
                                                                   "iproute",
                                                                   "engine",
                                                                   "providers",
                                                                   "http-proxy-user-pass",
                                                                   "tls-export-cert",
                                                                   "client-connect",
                                                                   "client-disconnect",
                                                                   "client-config-dir",
                                                                   "replay-persist",
                                                                   "tmp-dir",
                                                                   "setcon",
                                                                   "mktun",
                                                                   "rmtun",
                                                                   "askpass",
                                                                   "log",
                                                                   "log-append",
                                                                   "status",
                                                                   "writepid",
                                                                   "daemon",
                                                                   "syslog",
                                                                   "chroot",
                                                                   "cd",
                                                                   "user",
                                                                   "group",
                                                                   "connection"};

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
         std::ranges::find(kFurtherOpenVpnNames, lowered) != kFurtherOpenVpnNames.end();
}

bool IsJsonName(std::string_view name) {
  return !name.empty() && name.size() <= kLongestJsonName && std::ranges::all_of(name, IsNameByte);
}

}  // namespace quorvex::control
