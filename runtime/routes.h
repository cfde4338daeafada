// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

#include "runtime/engine_catalogue.h"

namespace quorvex::linux_service {

// Whether a line of `ip route show` output begins with `prefix` and names `interface` as its
// device. A plain substring test: an interface whose name only begins with the wanted one counts.
[[nodiscard]] bool OutputContainsRoute(const std::string& output, std::string_view prefix,
                                       std::string_view interface);

// Whether the kernel routes everything through the engine's interface, as `ip` tells it. What
// counts differs by engine, because each installs its routes in a way of its own. A query that
// fails means no. Blocks for at most two captured commands; any thread.
[[nodiscard]] bool HasFullRoute(EngineKind kind);

}  // namespace quorvex::linux_service
