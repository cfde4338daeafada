// SPDX-License-Identifier: Apache-2.0
//
// Where a sing-box configuration gets the addresses of its servers.
#pragma once

#include <json-glib/json-glib.h>

#include <vector>

#include "runtime/server_look_up.h"

namespace quorvex::linux_service {

// Adds a DNS server that knows the addresses, first in the DNS rules for the servers' names, and
// makes it the resolver of each outbound to one of them. A configuration whose DNS servers cannot
// be read stays as it is.
void HandToSingBox(const std::vector<NamedServer>& servers, JsonObject* root);

}  // namespace quorvex::linux_service
