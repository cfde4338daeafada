// SPDX-License-Identifier: Apache-2.0
//
// The addresses of a profile's servers, asked for before its engine starts. Afterwards it is too
// late: the machine's questions then go into the tunnel, which cannot carry them before it has
// reached the server. The engines' own look-ups cannot be cancelled either.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/engine_catalogue.h"
#include "runtime/unique_texts.h"

namespace quorvex::linux_service {

// A server's host name with its literal addresses, at least one, in the resolver's order.
struct NamedServer {
  std::string name;
  std::vector<std::string> addresses;
};

// The server of that name; null when there is none.
[[nodiscard]] const NamedServer* FindServer(const std::vector<NamedServer>& servers,
                                            const std::string& name);

// The servers' hosts in a validated profile, as its engine will read it: names and literal
// addresses in order of appearance, each once. Beside the kill switch's own reader, which looks at
// the usual places alone, this one knows the newer layouts and skips what the engine skips. Pure.
[[nodiscard]] std::vector<std::string> CollectServerHosts(EngineKind engine,
                                                          const std::string& rawConfig);

// Those of the hosts that are names. Pure.
[[nodiscard]] std::vector<std::string> CollectServerNames(EngineKind engine,
                                                          const std::string& rawConfig);

// "host:port" without its port, "[v6]:port" without brackets and port. Pure.
[[nodiscard]] std::string HostOfEndpoint(std::string_view endpoint);

// Adds a host to those of a profile; what is empty or longer than 255 bytes is none.
void AddServerHost(std::string host, UniqueTexts* hosts);

// Asks the system's resolver for `names`, for at most five seconds in all, blocking the calling
// thread. The answers go to `servers` in the order of `names`; a name without an answer, and each
// beyond the first 64, is left out and the journal gets a warning. False when `cancelled`, which is
// asked on the calling thread some twenty times a second, returned true: `servers` is then empty.
// No pointer may be null.
[[nodiscard]] bool LookUpServers(const std::vector<std::string>& names,
                                 const std::function<bool()>& cancelled,
                                 std::vector<NamedServer>* servers);

// The same for one name, without a limit and without a warning: its addresses, or none.
[[nodiscard]] std::vector<std::string> LookUpAddresses(const std::string& name,
                                                       const std::function<bool()>& cancelled);

}  // namespace quorvex::linux_service
