// SPDX-License-Identifier: Apache-2.0
#include "runtime/orphans.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "killswitch/nft_runner.h"
#include "runtime/command_runner.h"
#include "runtime/constants.h"
#include "runtime/process_table.h"

namespace quorvex::linux_service {
namespace {

using std::chrono::milliseconds;

// An engine needs up to this long to take its routes back.
constexpr milliseconds kEngineTimeout{8000};
constexpr milliseconds kHelperTimeout{1000};

// Ending `timeout` may set the tool free that it watched, so the search goes on until it finds
// nothing.
constexpr int kRounds = 3;

struct EngineProcess {
  const char* program;
  const char* configuration;
};

constexpr std::array kEngineProcesses = {
    EngineProcess{kSingBoxBinary, kSingBoxConfig},
    EngineProcess{kXrayBinary, kXrayConfig},
    EngineProcess{kOpenVpnBinary, kOpenVpnConfig},
};

bool IsOurEngine(const RunningProcess& process) {
  return std::ranges::any_of(kEngineProcesses, [&process](const EngineProcess& engine) {
    return RunsProgram(process, engine.program) && HasArgument(process, engine.configuration);
  });
}

// wg-quick is a script: what the kernel makes of it is `SHELL SCRIPT VERB FILE`.
bool IsOurQuick(const RunningProcess& process) {
  constexpr std::size_t kWords = 4;
  const std::vector<std::string>& words = process.arguments;
  return words.size() == kWords && (words[1] == kWireGuardQuick || words[1] == kAmneziaWgQuick) &&
         (words[2] == "up" || words[2] == "down") && words[3] == kWireGuardConfig;
}

template <std::size_t Count, std::size_t Tools>
bool Runs(const RunningProcess& process, const std::array<const char*, Count>& prefix,
          const std::array<const char*, Tools>& tools) {
  const std::vector<std::string>& words = process.arguments;
  return words.size() > Count && std::equal(prefix.begin(), prefix.end(), words.begin()) &&
         std::ranges::find(tools, std::string_view(words[Count])) != tools.end();
}

// A tool as the service starts it. When `timeout` ends, it ends the tool.
bool IsOurCommand(const RunningProcess& process) {
  constexpr std::array kTools = {kWireGuardQuick, kAmneziaWgQuick, kSingBoxBinary, kDnsHelper};
  constexpr std::array kNft = {kNftBinary};
  return RunsProgram(process, kTimeoutBinary) &&
         (Runs(process, kStatusPrefix, kTools) || Runs(process, kNftPrefix, kNft));
}

// The helper as OpenVPN runs it, itself or by way of a shell: the tunnel's name comes first.
bool IsOpenVpnHelper(const RunningProcess& process) {
  const std::vector<std::string>& words = process.arguments;
  const auto helper = std::ranges::find(
      words.begin(), words.begin() + std::min<std::ptrdiff_t>(2, std::ssize(words)), kDnsHelper);
  return helper != words.end() && std::next(helper) != words.end() &&
         *std::next(helper) == kOpenVpnInterface;
}

bool IsOrphan(const RunningProcess& process) {
  return IsOurEngine(process) || IsOurQuick(process) || IsOurCommand(process) ||
         IsOpenVpnHelper(process);
}

// Tools run further programs, which may be in the midst of changing the machine. `timeout` begins a
// group for all of them, which is ours as well when `timeout` itself has ended.
bool BelongsToGroupOfOurs(const RunningProcess& process) {
  return process.group > 1 &&
         (process.pid == process.group ? IsOurCommand(process)
                                       : IsOurQuick(process) && kill(process.group, 0) != 0);
}

// `wireguard-go INTERFACE`: nobody else's can serve an interface of this name in this network.
bool ServesWireGuard(const RunningProcess& process) {
  constexpr std::string_view kServer = "/wireguard-go";
  const std::string_view program = process.program;
  return process.arguments.size() == 2 && process.arguments[1] == kWireGuardInterface &&
         (program.ends_with(kServer) || RunsProgram(process, kAmneziaWgEngine));
}

void Tell(const std::vector<RunningProcess>& processes) {
  for (const RunningProcess& process : processes) {
    g_log(nullptr, G_LOG_LEVEL_MESSAGE, "Ending a leftover process: %d, %s", process.pid,
          process.program.c_str());
  }
}

void End(const std::vector<RunningProcess>& processes, milliseconds patience) {
  Tell(processes);
  if (!EndProcesses(processes, patience)) {
    g_log(nullptr, G_LOG_LEVEL_WARNING, "A leftover process cannot be ended.");
  }
}

}  // namespace

void EndOrphans() {
  // A number stays a group's as long as the group has members, and is not soon used again.
  std::set<pid_t> groups;
  for (int round = 0; round < kRounds; ++round) {
    for (const RunningProcess& process : FindProcesses(BelongsToGroupOfOurs)) {
      groups.insert(process.group);
    }
    const std::vector<RunningProcess> orphans =
        FindProcesses([&groups](const RunningProcess& process) {
          return IsOrphan(process) || groups.contains(process.group);
        });
    if (orphans.empty()) {
      return;
    }
    End(orphans, kEngineTimeout);
  }
}

void EndOpenVpnHelpers() {
  if (const std::vector<RunningProcess> helpers = FindProcesses(IsOpenVpnHelper);
      !helpers.empty()) {
    End(helpers, kHelperTimeout);
  }
}

void EndWireGuardServers() {
  const std::vector<RunningProcess> servers = FindProcesses(ServesWireGuard);
  if (!AwaitEnd(servers, kHelperTimeout)) {
    End(servers, kHelperTimeout);
  }
}

}  // namespace quorvex::linux_service
