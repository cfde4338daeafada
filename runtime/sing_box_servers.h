// SPDX-License-Identifier: Apache-2.0
//
// Where a sing-box configuration names its servers, and where it gets their addresses.
#pragma once

#include <json-glib/json-glib.h>

#include <string>
#include <vector>

#include "runtime/server_look_up.h"

namespace quorvex::linux_service {

// The hosts of its outbounds and of its WireGuard endpoints' peers, names and literal addresses
// alike, each once; a text that cannot be read has none. Pure.
[[nodiscard]] std::vector<std::string> SingBoxServerHosts(const std::string& configuration);

// Adds a DNS server that knows the addresses, first in the DNS rules for the servers' names, and
// makes it the resolver of each outbound or endpoint to one of them. A configuration whose DNS
// servers cannot be read stays as it is.
void HandToSingBox(const std::vector<NamedServer>& servers, JsonObject* root);

}  // namespace quorvex::linux_service
