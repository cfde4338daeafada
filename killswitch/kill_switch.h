// SPDX-License-Identifier: Apache-2.0
//
// Leak protection: an nftables table that drops all outgoing traffic except through the tunnel
// and to the VPN servers themselves.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "runtime/engine_catalogue.h"

namespace quorvex::linux_service {

// Whether the text is an IPv4 or IPv6 address. Pure.
[[nodiscard]] bool IsLiteralAddress(const std::string& host);

struct ResolverAnswer {
  // Literal, in the resolver's order.
  std::vector<std::string> addresses;
  // Why there are none; empty when there are some.
  std::string failure;
};

// Asks the system's resolver for a host name, which blocks for as long as that needs.
[[nodiscard]] ResolverAnswer AskResolver(const std::string& name);

// The addresses of the servers that an engine's configuration names, as literal IPv4 and IPv6
// texts in order of appearance, each once. Host names are resolved through the system's resolver,
// which blocks for as long as that needs; never on the main thread. What cannot be read or resolved
// is left out; never fails.
[[nodiscard]] std::vector<std::string> CollectEndpointAddresses(EngineKind kind,
                                                                const std::string& configuration);

// The same with another way to look names up, in place of the system's resolver. `lookUp` is asked
// for one name at a time, in order of appearance, and returns literal addresses.
using NameLookUp = std::function<std::vector<std::string>(const std::string& name)>;
[[nodiscard]] std::vector<std::string> CollectEndpointAddresses(EngineKind kind,
                                                                const std::string& configuration,
                                                                const NameLookUp& lookUp);

// Loads the table for the tunnel `interface` and the servers' `addresses`, replacing an earlier one
// in one transaction; a failure leaves the previous state as it was. Blocks for at most about six
// seconds. On failure `error` (not null) is one sentence.
[[nodiscard]] bool ApplyKillSwitch(const std::string& interface,
                                   const std::vector<std::string>& addresses, std::string* error);

// Removes the table; succeeds when there is none, and without running anything when nftables is not
// installed. Blocks for at most about six seconds. On failure `error` (not null) is
// "Unable to run the nftables leak-protection command." or
// "The nftables leak-protection command failed.".
[[nodiscard]] bool RemoveKillSwitch(std::string* error);

// Whether nftables reports the table as present.
[[nodiscard]] bool KillSwitchInstalled();

}  // namespace quorvex::linux_service
