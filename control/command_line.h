// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace quorvex::control {

// What the command line asks for.
struct CommandLine {
  std::string command;
  // What follows the command: the profile's file, or engines for `doctor`.
  std::vector<std::string> arguments;
  bool json = false;
  bool killSwitch = false;
  bool connected = false;
  // Empty when not given.
  std::string protocol;
  std::string id;
};

enum class Parsed { kRun, kHelp, kVersion, kWrong };

// Reads argv. For kWrong, `complaint` says what makes no sense; for kHelp, `complaint` is the
// help's text.
[[nodiscard]] Parsed ParseCommandLine(int argc, char** argv, CommandLine* line,
                                      std::string* complaint);

}  // namespace quorvex::control
