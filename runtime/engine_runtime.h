// SPDX-License-Identifier: Apache-2.0
//
// The one object that owns the tunnel engine that is up.
#pragma once

#include <gio/gio.h>

#include <functional>
#include <string>
#include <vector>

#include "runtime/engine_catalogue.h"
#include "runtime/glib_ptr.h"
#include "runtime/server_look_up.h"

namespace quorvex::linux_service {

// Starts, stops, recovers and watches the active engine. At most one engine is ever up, and its
// private files go when it goes.
//
// Every fallible operation returns whether it succeeded and writes one sentence for the user into
// `error` (never null) when it did not. The object has no lock: its owner runs at most one
// operation at a time. IsAvailable and AvailabilitySummary only read the file system and may run
// beside any other operation. Start and Stop run external tools and may block for tens of seconds.
class EngineRuntime {
 public:
  EngineRuntime();
  EngineRuntime(const EngineRuntime&) = delete;
  EngineRuntime& operator=(const EngineRuntime&) = delete;
  // Stops whatever is up; what goes wrong is discarded.
  ~EngineRuntime();

  // Whether the engine's programs and data files are installed, looked up afresh.
  [[nodiscard]] bool IsAvailable(EngineKind engine) const;
  // One line about all engines, such as
  // "Sing-box ready; Xray missing; WireGuard ready; OpenVPN ready".
  [[nodiscard]] std::string AvailabilitySummary() const;

  // Brings an engine up for a validated profile, after clearing the ground of any other. Succeeds
  // only when the tunnel's interface and full route exist. `cancelled` is asked on this thread and
  // returns true once the caller has abandoned the request; an empty callable throws
  // std::bad_function_call. `protocol` and `rawConfig` are the profile's.
  [[nodiscard]] bool Start(EngineKind engine, const std::string& protocol,
                           const std::string& rawConfig, const std::function<bool()>& cancelled,
                           std::string* error);
  // Removes the kill switch, then stops whatever is up and removes its files.
  [[nodiscard]] bool Stop(std::string* error);
  // Ends and clears what an earlier run of the service left behind.
  [[nodiscard]] bool Recover(std::string* error);
  // True when the engine's process died by itself or its interface has gone: the engine has been
  // ended, and what it left and its files have been removed, and `error` says which engine it was.
  // A kill switch stays, so that nothing leaks.
  [[nodiscard]] bool PollUnexpectedExit(std::string* error);
  // Closes the firewall around the tunnel that is up, for the servers that `rawConfig` names.
  // Looks names up once more, for as long as the system's resolver needs; `cancelled`, asked on
  // this thread, ends that earlier.
  [[nodiscard]] bool ApplyLeakProtection(const std::string& rawConfig, std::string* error);
  [[nodiscard]] bool ApplyLeakProtection(const std::string& rawConfig,
                                         const std::function<bool()>& cancelled,
                                         std::string* error);

 private:
  [[nodiscard]] bool StartWireGuard(const std::string& config,
                                    const std::function<bool()>& cancelled, std::string* error);
  [[nodiscard]] bool StartProcessEngine(EngineKind engine, const std::string& protocol,
                                        const std::string& configuration,
                                        const std::function<bool()>& cancelled, std::string* error);
  [[nodiscard]] bool StopProcess(std::string* error);
  [[nodiscard]] bool StopEngine(std::string* error);
  [[nodiscard]] bool PollLostTunnel(std::string* error);
  [[nodiscard]] bool GiveUpEngine(std::string* error);
  [[nodiscard]] bool IsRestarting();
  void ForgetEngine();

  // While kind is kUnsupported, process is null and activeConfigPath is empty.
  EngineKind kind = EngineKind::kUnsupported;
  // Only the process engines have one: wg-quick exits once its interface is up.
  GObjectPtr<GSubprocess> process;
  std::string activeConfigPath;
  // Nothing leaves beside the tunnel.
  bool killSwitchIsOn = false;
  // For how many polls an engine that restarts itself has been without its interface.
  int pollsWithoutInterface = 0;
  // At the last of these, what the tunnel changed is noted for good; 0: it has been.
  int pollsToSettle = 0;
  // What was looked up for the engine before its start.
  std::vector<NamedServer> namedServers;
};

}  // namespace quorvex::linux_service
