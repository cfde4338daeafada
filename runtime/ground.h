// SPDX-License-Identifier: Apache-2.0
//
// The ground on which an engine is started: what is on the machine before it, and what must be
// there again after it, however it ended. The caller runs at most one of these at a time.
#pragma once

#include <string>
#include <vector>

#include "runtime/engine_catalogue.h"
#include "runtime/server_look_up.h"

namespace quorvex::linux_service {

// Whether the engine's interface exists.
[[nodiscard]] bool TunnelInterfaceExists(EngineKind engine);

// Right before an engine is started: makes sure that nobody holds the engine's interface, which
// would pass for the new tunnel, and records what stands. `servers` are the names looked up for
// `rawConfig`. On failure `error` (not null) is one sentence.
[[nodiscard]] bool PrepareGround(EngineKind engine, const std::string& rawConfig,
                                 const std::vector<NamedServer>& servers, std::string* error);

enum class TunnelAge { kNew, kSettled };

// Records what the engine has changed: once when the tunnel is up and, since an engine may add its
// last rules after its tunnel looks complete, a second time when it has settled. Nothing that comes
// later counts as the engine's. What cannot be recorded is logged.
void NoteTunnel(TunnelAge age);

// After an engine of this or of an earlier run of the service has ended: removes what it left and
// the record. Does nothing without a record. What cannot be removed is logged; the record then
// stays for the next try.
void ClearGround();

}  // namespace quorvex::linux_service
