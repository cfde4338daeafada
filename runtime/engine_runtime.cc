// SPDX-License-Identifier: Apache-2.0
#include "runtime/engine_runtime.h"

#include <sys/stat.h>

#include "killswitch/kill_switch.h"
#include "runtime/child_end.h"
#include "runtime/child_process.h"
#include "runtime/constants.h"
#include "runtime/engine_files.h"
#include "runtime/ground.h"
#include "runtime/leak_protection.h"
#include "runtime/orphans.h"
#include "runtime/private_files.h"
#include "runtime/process_table.h"
#include "runtime/server_look_up.h"
#include "runtime/wireguard_engine.h"

namespace quorvex::linux_service {
namespace {

constexpr char kCancelled[] = "The VPN connection request was cancelled.";
constexpr char kUnavailable[] = " runtime is unavailable. Repair the QuorvexVPN installation.";
constexpr char kForced[] = " required forced termination; route cleanup needs verification.";
constexpr char kStoppedUnexpectedly[] = " stopped unexpectedly.";
// An engine may add its last rules after its tunnel looks complete. Two polls later it has.
constexpr int kPollsToSettle = 2;
// As long as OpenVPN has at its start, in polls of a second.
constexpr int kPollsToRestart = 30;
constexpr char kNoTunnel[] = "No tunnel interface is active.";

bool Fail(std::string sentence, std::string* error) {
  *error = std::move(sentence);
  return false;
}

bool HasWireGuardLeftovers() {
  struct stat status = {};
  return (lstat(kWireGuardConfig, &status) == 0 && S_ISREG(status.st_mode)) ||
         g_file_test(kWireGuardInterfacePath, G_FILE_TEST_IS_DIR) != FALSE;
}

}  // namespace

EngineRuntime::EngineRuntime() = default;

EngineRuntime::~EngineRuntime() {
  std::string discarded;
  static_cast<void>(Stop(&discarded));
}

bool EngineRuntime::Start(EngineKind engine, const std::string& protocol,
                          const std::string& rawConfig, const std::function<bool()>& cancelled,
                          std::string* error) {
  if (cancelled()) {
    return Fail(kCancelled, error);
  }
  if (!IsAvailable(engine)) {
    return Fail(std::string(EngineName(engine)) + kUnavailable, error);
  }
  // A new engine never starts beside an old one or its files.
  if (!Recover(error)) {
    return false;
  }
  // Once the tunnel takes all traffic, nobody could answer before it works.
  const std::vector<std::string> names = CollectServerNames(engine, rawConfig);
  if (!LookUpServers(names, cancelled, &namedServers) || cancelled()) {
    return Fail(kCancelled, error);
  }
  if (!PrepareGround(engine, rawConfig, namedServers, error)) {
    return false;
  }
  const bool started = engine == EngineKind::kWireGuard
                           ? StartWireGuard(rawConfig, cancelled, error)
                           : StartProcessEngine(engine, protocol, rawConfig, cancelled, error);
  if (started) {
    NoteTunnel(TunnelAge::kNew);
    pollsToSettle = kPollsToSettle;
    OpenWayIntoTunnel(engine, rawConfig, LocalNetworks::kOutside);
  } else {
    ClearGround();
  }
  return started;
}

bool EngineRuntime::Stop(std::string* error) {
  // The kill switch goes first, so that a failed stop never leaves the machine without network and
  // without a way to reconnect.
  std::string killSwitchError;
  const bool unblocked = RemoveKillSwitch(&killSwitchError);
  killSwitchIsOn = false;
  CloseWayIntoTunnel();
  const bool stopped = StopEngine(error);
  ClearGround();
  if (!stopped) {
    // What failed to end properly may have been ended by force by now.
    if (!TunnelInterfaceExists(kind)) {
      ForgetEngine();
    }
    return false;
  }
  return unblocked || Fail(std::move(killSwitchError), error);
}

bool EngineRuntime::StopEngine(std::string* error) {
  if (process != nullptr) {
    return StopProcess(error);
  }
  if ((kind == EngineKind::kWireGuard || HasWireGuardLeftovers()) && !StopWireGuard(error)) {
    return false;
  }
  ForgetEngine();
  return true;
}

bool EngineRuntime::StopProcess(std::string* error) {
  if (process == nullptr) {
    return true;
  }
  const EngineKind stopped = kind;
  const bool inTime = EndChild(process.get());
  ForgetEngine();
  std::string removalError;
  const bool removed = RemoveConfigFor(stopped, &removalError);
  if (!inTime) {
    return Fail(std::string(EngineName(stopped)) + kForced, error);
  }
  return removed || Fail(std::move(removalError), error);
}

void EngineRuntime::ForgetEngine() {
  process.reset();
  kind = EngineKind::kUnsupported;
  pollsToSettle = 0;
  pollsWithoutInterface = 0;
  activeConfigPath.clear();
  namedServers.clear();
}

bool EngineRuntime::Recover(std::string* error) {
  EndOrphans();
  if (kind == EngineKind::kUnsupported) {
    AdoptWireGuardTool();
  }
  return Stop(error) && StopWireGuard(error) && SecureRemoveFile(kSingBoxConfig, error) &&
         SecureRemoveFile(kXrayConfig, error) && RemoveConfigFor(EngineKind::kOpenVpn, error);
}

bool EngineRuntime::PollUnexpectedExit(std::string* error) {
  if (process == nullptr || ProcessIsAlive(process.get())) {
    return PollLostTunnel(error);
  }
  return GiveUpEngine(error);
}

// OpenVPN without `persist-tun` closes its device when it begins anew after a loss, and comes back
// by itself. As long as the kill switch lets nothing out meanwhile, it has its usual time for that.
// A device that was deleted is still open in the process, and does not come back.
bool EngineRuntime::IsRestarting() {
  return kind == EngineKind::kOpenVpn && killSwitchIsOn && process != nullptr &&
         ++pollsWithoutInterface < kPollsToRestart &&
         !HoldsFile(g_subprocess_get_identifier(process.get()), kTunDevice);
}

bool EngineRuntime::PollLostTunnel(std::string* error) {
  if (kind == EngineKind::kUnsupported) {
    return false;
  }
  if (TunnelInterfaceExists(kind)) {
    pollsWithoutInterface = 0;
    if (pollsToSettle > 0 && --pollsToSettle == 0) {
      NoteTunnel(TunnelAge::kSettled);
    }
    return false;
  }
  if (IsRestarting()) {
    return false;
  }
  if (process != nullptr) {
    // By force, since an end in good order may take seconds and there is no tunnel to save.
    g_subprocess_force_exit(process.get());
  }
  return GiveUpEngine(error);
}

bool EngineRuntime::GiveUpEngine(std::string* error) {
  const EngineKind lost = kind;
  if (process != nullptr) {
    // Only reaps: the child has ended.
    static_cast<void>(g_subprocess_wait(process.get(), nullptr, nullptr));
  }
  ForgetEngine();
  CloseWayIntoTunnel();
  std::string discarded;
  if (lost == EngineKind::kWireGuard) {
    static_cast<void>(RunWireGuardDnsCommand({"revert-wireguard"}, &discarded));
  }
  static_cast<void>(RemoveConfigFor(lost, &discarded));
  ClearGround();
  *error = std::string(EngineName(lost)) + kStoppedUnexpectedly;
  return true;
}

bool EngineRuntime::ApplyLeakProtection(const std::string& rawConfig, std::string* error) {
  return ApplyLeakProtection(
      rawConfig, [] { return false; }, error);
}

bool EngineRuntime::ApplyLeakProtection(const std::string& rawConfig,
                                        const std::function<bool()>& cancelled,
                                        std::string* error) {
  const std::string interface = TunnelInterfaceFor(kind);
  if (interface.empty()) {
    return Fail(kNoTunnel, error);
  }
  std::vector<std::string> addresses =
      AddressesToLetThrough(kind, rawConfig, namedServers, cancelled);
  MakeReadableForNft(&addresses);
  OpenWayIntoTunnel(kind, rawConfig, LocalNetworks::kInside);
  if (!ApplyKillSwitch(interface, addresses, error)) {
    OpenWayIntoTunnel(kind, rawConfig, LocalNetworks::kOutside);
    return false;
  }
  killSwitchIsOn = true;
  return true;
}

}  // namespace quorvex::linux_service
