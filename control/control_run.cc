// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <clocale>
#include <string>
#include <string_view>

#include "control/commands.h"
#include "control/exit_codes.h"
#include "control/output.h"

namespace quorvex::control {
namespace {

constexpr const char* kVersionLine = "quorvexvpnctl " QUORVEX_VERSION "\n";
constexpr const char* kTryHelp = "Try \"quorvexvpnctl --help\".";

struct Command {
  std::string_view name;
  int (*run)(const CommandLine& line);
};

constexpr std::array kCommands = {
    Command{"status", RunStatus},         Command{"connect", RunConnect},
    Command{"disconnect", RunDisconnect}, Command{"watch", RunWatch},
    Command{"keygen", RunKeygen},         Command{"check", RunCheck},
    Command{"doctor", RunDoctor},
};

int Run(const CommandLine& line) {
  const auto* found = std::ranges::find(kCommands, line.command, &Command::name);
  return found == kCommands.end() ? kExitUsage : found->run(line);
}

}  // namespace

int RunControl(int argc, char** argv) {
  // Words on the command line are in the user's own character set; our sentences stay as they are.
  static_cast<void>(std::setlocale(LC_CTYPE, ""));
  CommandLine line;
  std::string words;
  switch (ParseCommandLine(argc, argv, &line, &words)) {
    case Parsed::kRun:
      return Run(line);
    case Parsed::kHelp:
      Print(words);
      return kExitOk;
    case Parsed::kVersion:
      Print(kVersionLine);
      return kExitOk;
    case Parsed::kWrong:
      break;
  }
  return Report({kExitUsage, words, kTryHelp}, line.json);
}

}  // namespace quorvex::control
