// SPDX-License-Identifier: Apache-2.0
//
// What leak protection needs beside the firewall's table, so that it never cuts off the tunnel that
// it protects.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "killswitch/sing_box_route.h"
#include "runtime/engine_catalogue.h"
#include "runtime/server_look_up.h"

namespace quorvex::linux_service {

// The addresses to let through for a running engine: those of CollectEndpointAddresses, then the
// literal ones that only the engine's own reading of the configuration shows, then those that were
// looked up before the start (`servers`). A name may have other answers through the tunnel, or
// none; the engine talks to the earlier ones. With literal addresses alone, in their usual places,
// the list is what CollectEndpointAddresses returns. Look-ups take as long as the resolver does, or
// until `cancelled`, asked on the calling thread, returns true.
[[nodiscard]] std::vector<std::string> AddressesToLetThrough(
    EngineKind engine, const std::string& rawConfig, const std::vector<NamedServer>& servers,
    const std::function<bool()>& cancelled);

// Keeps one address that nftables cannot read (a scope, an IPv4 tail) from costing the others their
// place: among several it is written in a readable way or left out. A single one stays, and so does
// nftables' refusal. Pure.
void MakeReadableForNft(std::vector<std::string>* addresses);

// Leads all traffic into sing-box's tunnel, also that of earlier connections, which its own ways do
// not take and the firewall's table would stop; for the other engines nothing. `local` is about the
// machine's own networks. If that fails, the journal says what becomes of the traffic.
void OpenWayIntoTunnel(EngineKind engine, const std::string& rawConfig, LocalNetworks local);

// Takes it back, whichever engine it was for, and also after an earlier run of the service. What
// goes wrong is told to the journal.
void CloseWayIntoTunnel();

}  // namespace quorvex::linux_service
