// SPDX-License-Identifier: Apache-2.0
//
// The engines that run as one long-lived child each: sing-box, Xray and OpenVPN.
#include "runtime/child_end.h"
#include "runtime/child_process.h"
#include "runtime/command_runner.h"
#include "runtime/constants.h"
#include "runtime/engine_files.h"
#include "runtime/engine_runtime.h"
#include "runtime/openvpn_config.h"
#include "runtime/private_files.h"
#include "runtime/routes.h"
#include "runtime/secret_traces.h"
#include "runtime/secure_clear.h"
#include "runtime/server_hand_over.h"
#include "runtime/sing_box_config.h"
#include "runtime/xray_config.h"

namespace quorvex::linux_service {
namespace {

// Where the engines lie: their working directory, and where Xray looks for its data.
constexpr char kEngineDirectory[] = "/usr/libexec/quorvexvpn";
constexpr char kAssetVariable[] = "XRAY_LOCATION_ASSET";

constexpr gulong kPollPauseMicroseconds = 500'000;

constexpr char kCheckFailed[] = "Sing-box rejected the generated configuration.";
constexpr char kSpawnFailed[] = "Unable to start the VPN engine.";
constexpr char kWithdrawn[] = "The VPN connection request was cancelled.";

constexpr auto kSilence = static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDOUT_SILENCE |
                                                        G_SUBPROCESS_FLAGS_STDERR_SILENCE);

constexpr const char* kSingBoxRun[] = {kSingBoxBinary,    "run",  "-c", kSingBoxConfig,
                                       "--disable-color", nullptr};
constexpr const char* kXrayRun[] = {kXrayBinary, "run", "-config", kXrayConfig, nullptr};
constexpr const char* kOpenVpnRun[] = {kOpenVpnBinary,
                                       "--config",
                                       kOpenVpnConfig,
                                       "--script-security",
                                       "2",
                                       "--up",
                                       kDnsHelper,
                                       "--down",
                                       kDnsHelper,
                                       "--down-pre",
                                       "--auth-nocache",
                                       "--writepid",
                                       kOpenVpnPid,
                                       "--verb",
                                       "3",
                                       "--suppress-timestamps",
                                       nullptr};

struct Launch {
  EngineKind kind;
  // Makes the engine's own text of the profile's protocol and configuration.
  bool (*prepare)(const std::string& protocol, const std::string& configuration, std::string* text,
                  std::string* error);
  const char* configPath;
  const char* interfacePath;
  // With its terminating null.
  const char* const* command;
  int polls;
  // One sentence an engine, whether it died or was not ready in time.
  const char* notUp;
};

bool PrepareXray(const std::string& /*protocol*/, const std::string& configuration,
                 std::string* text, std::string* error) {
  return NormalizeXray(configuration, text, error);
}

bool PrepareOpenVpn(const std::string& /*protocol*/, const std::string& configuration,
                    std::string* text, std::string* /*error*/) {
  *text = RewriteOpenVpnConfig(configuration);
  return true;
}

constexpr Launch kSingBoxLaunch = {EngineKind::kSingBox,
                                   NormalizeSingBox,
                                   kSingBoxConfig,
                                   kSingBoxInterfacePath,
                                   kSingBoxRun,
                                   20,
                                   "Sing-box exited during startup."};
constexpr Launch kXrayLaunch = {EngineKind::kXray,
                                PrepareXray,
                                kXrayConfig,
                                kXrayInterfacePath,
                                kXrayRun,
                                20,
                                "Xray did not establish its TUN interface in time."};
constexpr Launch kOpenVpnLaunch = {EngineKind::kOpenVpn,
                                   PrepareOpenVpn,
                                   kOpenVpnConfig,
                                   kOpenVpnInterfacePath,
                                   kOpenVpnRun,
                                   60,
                                   "OpenVPN did not establish its TUN interface in time."};

// Asked for the three process engines only.
const Launch& LaunchFor(EngineKind kind) {
  if (kind == EngineKind::kSingBox) {
    return kSingBoxLaunch;
  }
  return kind == EngineKind::kXray ? kXrayLaunch : kOpenVpnLaunch;
}

enum class Outcome { kUp, kNotUp, kCancelled };

bool Fail(const char* sentence, std::string* error) {
  *error = sentence;
  return false;
}

// On paths that fail with a sentence of their own: what goes wrong here is discarded, so that the
// user reads why the connection failed.
void DiscardConfiguration(const Launch& launch) {
  std::string discarded;
  static_cast<void>(SecureRemoveFile(launch.configPath, &discarded));
}

bool WriteConfiguration(const Launch& launch, const std::string& protocol,
                        const std::string& configuration, const std::vector<NamedServer>& servers,
                        std::string* error) {
  std::string text;
  if (!launch.prepare(protocol, configuration, &text, error)) {
    return false;
  }
  // Without the addresses the engine asks for them itself.
  static_cast<void>(HandOverServers(launch.kind, servers, &text));
  const bool written = WritePrivateFile(launch.configPath, text, error);
  SecureClear(&text);
  WipeSecretTraces();
  return written;
}

// sing-box judges its configuration itself before it is run for good.
bool CheckConfiguration(const Launch& launch, std::string* error) {
  if (launch.kind != EngineKind::kSingBox ||
      RunCommand({kSingBoxBinary, "check", "-c", launch.configPath}, error)) {
    return true;
  }
  DiscardConfiguration(launch);
  return Fail(kCheckFailed, error);
}

// Null, with a sentence, when the engine cannot be started. It is not run under `timeout`: it lives
// until it is stopped.
GObjectPtr<GSubprocess> Spawn(const Launch& launch, std::string* error) {
  const GObjectPtr<GSubprocessLauncher> launcher(g_subprocess_launcher_new(kSilence));
  g_subprocess_launcher_set_cwd(launcher.get(), kEngineDirectory);
  g_subprocess_launcher_setenv(launcher.get(), kAssetVariable, kEngineDirectory, TRUE);
  GErrorSlot failure;
  GObjectPtr<GSubprocess> child(
      g_subprocess_launcher_spawnv(launcher.get(), launch.command, failure.Out()));
  if (child == nullptr) {
    DiscardConfiguration(launch);
    *error = failure.MessageOr(kSpawnFailed);
  }
  return child;
}

bool TunnelIsUp(const Launch& launch) {
  return g_file_test(launch.interfacePath, G_FILE_TEST_IS_DIR) != FALSE &&
         HasFullRoute(launch.kind);
}

Outcome AwaitTunnel(const Launch& launch, GSubprocess* child,
                    const std::function<bool()>& cancelled) {
  for (int poll = 0; poll < launch.polls; ++poll) {
    if (cancelled()) {
      return Outcome::kCancelled;
    }
    if (!ProcessIsAlive(child)) {
      return Outcome::kNotUp;
    }
    if (TunnelIsUp(launch)) {
      return Outcome::kUp;
    }
    g_usleep(kPollPauseMicroseconds);
  }
  return Outcome::kNotUp;
}

void Abandon(const Launch& launch, GObjectPtr<GSubprocess> child) {
  // By force or not: the sentence is about the start.
  static_cast<void>(EndChild(child.get()));
  child.reset();
  std::string discarded;
  static_cast<void>(RemoveConfigFor(launch.kind, &discarded));
}

}  // namespace

bool EngineRuntime::StartProcessEngine(EngineKind engine, const std::string& protocol,
                                       const std::string& configuration,
                                       const std::function<bool()>& cancelled, std::string* error) {
  const Launch& launch = LaunchFor(engine);
  if (!WriteConfiguration(launch, protocol, configuration, namedServers, error) ||
      !CheckConfiguration(launch, error)) {
    return false;
  }
  GObjectPtr<GSubprocess> child = Spawn(launch, error);
  if (child == nullptr) {
    return false;
  }
  const Outcome outcome = AwaitTunnel(launch, child.get(), cancelled);
  if (outcome != Outcome::kUp) {
    Abandon(launch, std::move(child));
    return Fail(outcome == Outcome::kCancelled ? kWithdrawn : launch.notUp, error);
  }
  kind = engine;
  process = std::move(child);
  activeConfigPath = launch.configPath;
  return true;
}

}  // namespace quorvex::linux_service
