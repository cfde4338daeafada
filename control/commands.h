// SPDX-License-Identifier: Apache-2.0
//
// The commands. Each does its work, prints its answer and returns the exit code.
#pragma once

#include "control/command_line.h"

namespace quorvex::control {

[[nodiscard]] int RunStatus(const CommandLine& line);
[[nodiscard]] int RunConnect(const CommandLine& line);
[[nodiscard]] int RunDisconnect(const CommandLine& line);
[[nodiscard]] int RunWatch(const CommandLine& line);
[[nodiscard]] int RunKeygen(const CommandLine& line);
[[nodiscard]] int RunCheck(const CommandLine& line);
[[nodiscard]] int RunDoctor(const CommandLine& line);

// Reads the command line and runs what it asks for.
[[nodiscard]] int RunControl(int argc, char** argv);

}  // namespace quorvex::control
