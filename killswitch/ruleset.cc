// SPDX-License-Identifier: Apache-2.0
#include "killswitch/ruleset.h"

#include <algorithm>
#include <string_view>

#include "runtime/constants.h"
#include "runtime/glib_ptr.h"

namespace quorvex::linux_service {
namespace {

constexpr char kBadInterface[] = "The tunnel interface name is not usable.";
constexpr char kNoAddress[] = "No server address was available for the leak-protection ruleset.";

// IFNAMSIZ without its NUL.
constexpr std::size_t kLongestInterfaceName = 15;

bool Fail(const char* sentence, std::string* error) {
  *error = sentence;
  return false;
}

// The name is written between double quotes into the script, so nothing else may stand in it.
bool IsUsableInterface(std::string_view name) {
  constexpr std::string_view kAllowed =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._";
  return !name.empty() && name.size() <= kLongestInterfaceName &&
         name.find_first_not_of(kAllowed) == std::string_view::npos;
}

struct AddressesByFamily {
  std::vector<std::string> ipv4;
  std::vector<std::string> ipv6;
};

AddressesByFamily Split(const std::vector<std::string>& addresses) {
  AddressesByFamily split;
  for (const std::string& text : addresses) {
    const GObjectPtr<GInetAddress> address(g_inet_address_new_from_string(text.c_str()));
    if (address == nullptr) {
      continue;
    }
    const bool isIpv6 = g_inet_address_get_family(address.get()) == G_SOCKET_FAMILY_IPV6;
    (isIpv6 ? split.ipv6 : split.ipv4).push_back(text);
  }
  return split;
}

// "" for no addresses: an empty set is an error to nft.
std::string AcceptRule(std::string_view match, const std::vector<std::string>& addresses) {
  std::string rule;
  for (const std::string& address : addresses) {
    rule.append(rule.empty() ? "" : ", ").append(address);
  }
  return rule.empty() ? rule : "    " + std::string(match) + " { " + rule + " } accept\n";
}

}  // namespace

bool BuildKillSwitchRuleset(const std::string& interface, const std::vector<std::string>& addresses,
                            std::string* ruleset, std::string* error) {
  if (!IsUsableInterface(interface)) {
    return Fail(kBadInterface, error);
  }
  const AddressesByFamily split = Split(addresses);
  if (split.ipv4.empty() && split.ipv6.empty()) {
    return Fail(kNoAddress, error);
  }
  const std::string table = std::string("table inet ") + kKillSwitchTable;
  // Declared so that the deletion never fails for want of a table, deleted, and declared afresh:
  // one transaction replaces an earlier table whole.
  *ruleset = table + "\n" + "delete " + table + "\n" + table + " {\n" + "  chain output {\n" +
             "    type filter hook output priority 0; policy drop;\n" +
             "    oifname \"lo\" accept\n" + "    oifname \"" + interface + "\" accept\n" +
             "    meta l4proto ipv6-icmp accept\n" + "    udp dport { 67, 68, 546, 547 } accept\n" +
             AcceptRule("ip daddr", split.ipv4) + AcceptRule("ip6 daddr", split.ipv6) + "  }\n" +
             "}\n";
  return true;
}

}  // namespace quorvex::linux_service
