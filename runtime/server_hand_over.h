// SPDX-License-Identifier: Apache-2.0
//
// Gives sing-box and Xray the addresses that were looked up for them. With the tunnel's fixed DNS
// and routing alone, both would ask for their server's name through the tunnel that is to be built
// by the answer, and wait for themselves.
#pragma once

#include <string>
#include <vector>

#include "runtime/engine_catalogue.h"
#include "runtime/server_look_up.h"

namespace quorvex::linux_service {

// Adds the addresses of `servers` to the normalised configuration in `text`. Without servers, and
// for the other engines, the text stays as it is. False, with the text untouched, when it cannot be
// read or written anew. Pure; what it copies of the text is wiped.
[[nodiscard]] bool HandOverServers(EngineKind engine, const std::vector<NamedServer>& servers,
                                   std::string* text);

}  // namespace quorvex::linux_service
