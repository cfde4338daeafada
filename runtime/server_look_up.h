// SPDX-License-Identifier: Apache-2.0
//
// The addresses of a profile's servers, asked for before its engine starts. Afterwards it is too
// late: the machine's questions then go into the tunnel, which cannot carry them before it has
// reached the server. The engines' own look-ups cannot be cancelled either.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "runtime/engine_catalogue.h"

namespace quorvex::linux_service {

// A server's host name with its literal addresses, at least one, in the resolver's order.
struct NamedServer {
  std::string name;
  std::vector<std::string> addresses;
};

// The server of that name; null when there is none.
[[nodiscard]] const NamedServer* FindServer(const std::vector<NamedServer>& servers,
                                            const std::string& name);

// The host names of the servers in a validated profile, in order of appearance, each once. Literal
// addresses are none. Pure.
[[nodiscard]] std::vector<std::string> CollectServerNames(EngineKind engine,
                                                          const std::string& rawConfig);

// Asks the system's resolver for all `names`, for at most five seconds in all, blocking the calling
// thread. The answers go to `servers` in the order of `names`; a name without an answer is left out
// and the journal gets a warning. False when `cancelled`, which is asked on the calling thread
// some twenty times a second, returned true: `servers` is then empty. No pointer may be null.
[[nodiscard]] bool LookUpServers(const std::vector<std::string>& names,
                                 const std::function<bool()>& cancelled,
                                 std::vector<NamedServer>* servers);

using LookUpDeadline = std::chrono::steady_clock::time_point;

// The same for one name, without a warning: its addresses, or none when nothing answered before
// `deadline` or `cancelled` returned true.
[[nodiscard]] std::vector<std::string> LookUpAddresses(const std::string& name,
                                                       LookUpDeadline deadline,
                                                       const std::function<bool()>& cancelled);

}  // namespace quorvex::linux_service
