// SPDX-License-Identifier: Apache-2.0
//
// What the runtime needs of the WireGuard engine beside EngineRuntime::StartWireGuard.
#pragma once

#include <string>
#include <vector>

#include "runtime/command_runner.h"

namespace quorvex::linux_service {

// Takes a WireGuard or AmneziaWG tunnel down and removes its configuration. Decides from what is on
// disk, so that it also cleans up after a crash of the service; nothing there is a success. On
// failure `error` (not null) says which step failed. Runs tools: blocks for up to half a minute.
[[nodiscard]] bool StopWireGuard(std::string* error);

// Which tool took a tunnel up is known to the process alone that did it. After that one's end the
// leftover configuration tells: the same tool must take the tunnel down.
void AdoptWireGuardTool();

// Runs the client's DNS helper with `arguments`; result and message as RunCommand's.
[[nodiscard]] bool RunWireGuardDnsCommand(const std::vector<std::string>& arguments,
                                          std::string* error);

// What awg-quick needs to find the shipped tools and to use the user-space engine.
[[nodiscard]] EnvironmentList AmneziaEnvironment();

}  // namespace quorvex::linux_service
