// SPDX-License-Identifier: Apache-2.0
//
// Where an Xray outbound names its servers. Newer layouts than the kill switch's reader knows
// count, too: an address of the settings themselves, and the endpoints of a WireGuard outbound.
#pragma once

#include <json-glib/json-glib.h>

#include <string>
#include <vector>

#include "runtime/server_look_up.h"
#include "runtime/unique_texts.h"

namespace quorvex::linux_service {

// Appends the outbound's server hosts, names and literal addresses alike, each once. Pure.
void AddXrayOutboundHosts(JsonObject* outbound, UniqueTexts* hosts);

// The same for every outbound of a configuration; a text that cannot be read has none.
[[nodiscard]] std::vector<std::string> XrayServerHosts(const std::string& configuration);

// Gives each outbound to one of these servers a strategy that looks names up in Xray itself, and
// Xray the addresses to find there. Addresses and strategies of the profile's own are kept as long
// as they need no further look-up.
void HandToXray(const std::vector<NamedServer>& servers, JsonObject* root);

}  // namespace quorvex::linux_service
