// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "runtime/engine_catalogue.h"

namespace quorvex::linux_service {

// The server hosts that a configuration names, in order of appearance, each once, 1 to 255 bytes
// long. What cannot be read is left out. Pure.
[[nodiscard]] std::vector<std::string> CollectEndpointHosts(EngineKind kind,
                                                            const std::string& configuration);

}  // namespace quorvex::linux_service
