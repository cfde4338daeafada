// SPDX-License-Identifier: Apache-2.0
#include "runtime/wireguard_engine.h"

#include <gio/gio.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>

#include "runtime/constants.h"
#include "runtime/engine_runtime.h"
#include "runtime/private_files.h"
#include "runtime/routes.h"
#include "runtime/secure_clear.h"
#include "runtime/wireguard_config.h"
#include "validation/profile_validation.h"

namespace quorvex::linux_service {
namespace {

constexpr char kNoDnsServer[] = "WireGuard did not provide a DNS server.";
constexpr char kNoAmneziaTools[] =
    "This server needs the AmneziaWG tools, which are missing. Repair the QuorvexVPN "
    "installation.";
constexpr char kUpFailed[] = "WireGuard failed to connect.";
constexpr char kNoInterface[] = "WireGuard exited without creating the expected interface.";
constexpr char kNoFullRoute[] = "WireGuard did not install a full-tunnel route.";
constexpr char kDnsFailed[] = "WireGuard connected but DNS setup failed.";
constexpr char kCancelled[] = "The VPN connection request was cancelled.";
constexpr char kCancelledUnclean[] = "The cancelled WireGuard connection could not be cleaned up.";
constexpr char kForeignInterface[] =
    "The WireGuard interface exists without its private configuration; administrator repair is "
    "required.";
constexpr char kDownFailed[] = "WireGuard disconnect cleanup failed.";
constexpr char kInterfaceStays[] = "WireGuard reported disconnect but its interface still exists.";
constexpr char kDnsRevertFailed[] = "WireGuard disconnected but DNS cleanup failed.";

// Whether the tunnel that is up was brought up by awg-quick, since the same tool must take it down.
std::atomic<bool> g_wireguard_uses_amnezia{false};

bool Fail(const char* sentence, std::string* error) {
  *error = sentence;
  return false;
}

bool InterfaceExists() {
  return g_file_test(kWireGuardInterfacePath, G_FILE_TEST_IS_DIR) != FALSE;
}

bool ConfigurationExists() {
  struct stat status = {};
  return lstat(kWireGuardConfig, &status) == 0 && S_ISREG(status.st_mode);
}

bool AmneziaToolsAreInstalled() {
  constexpr std::array kTools = {kAmneziaWgQuick, kAmneziaWgTool, kAmneziaWgEngine};
  return std::ranges::all_of(kTools, [](const char* tool) {
    return g_file_test(tool, G_FILE_TEST_IS_EXECUTABLE) != FALSE;
  });
}

bool RunQuick(bool amnezia, const char* verb, std::string* error) {
  if (amnezia) {
    return RunCommandWithEnvironment({kAmneziaWgQuick, verb, kWireGuardConfig},
                                     AmneziaEnvironment(), error);
  }
  return RunCommand({kWireGuardQuick, verb, kWireGuardConfig}, error);
}

// Clean-up on a path that fails with a sentence of its own: what goes wrong here is discarded, so
// that the user reads why the connection failed.
void DiscardConfiguration() {
  std::string discarded;
  static_cast<void>(SecureRemoveFile(kWireGuardConfig, &discarded));
}

void DiscardTunnel() {
  std::string discarded;
  static_cast<void>(StopWireGuard(&discarded));
}

// Writes the configuration without its DNS lines, which go to `dnsServers`.
bool WriteConfiguration(const std::string& config, std::vector<std::string>* dnsServers,
                        std::string* error) {
  WireGuardRewrite rewrite = RewriteWireGuardConfig(config);
  if (rewrite.dnsServers.empty()) {
    SecureClear(&rewrite.text);
    return Fail(kNoDnsServer, error);
  }
  *dnsServers = std::move(rewrite.dnsServers);
  const bool written = WritePrivateFile(kWireGuardConfig, rewrite.text, error);
  SecureClear(&rewrite.text);
  return written;
}

bool BringUp(bool amnezia, std::string* error) {
  if (amnezia && !AmneziaToolsAreInstalled()) {
    DiscardConfiguration();
    return Fail(kNoAmneziaTools, error);
  }
  g_wireguard_uses_amnezia.exchange(amnezia);
  if (RunQuick(amnezia, "up", error)) {
    return true;
  }
  if (InterfaceExists()) {
    DiscardTunnel();
  } else {
    DiscardConfiguration();
  }
  return Fail(kUpFailed, error);
}

// wg-quick's word is not enough: the interface and the full route must be there.
bool ConfirmTunnel(std::string* error) {
  if (!InterfaceExists()) {
    DiscardConfiguration();
    return Fail(kNoInterface, error);
  }
  if (!HasFullRoute(EngineKind::kWireGuard)) {
    DiscardTunnel();
    return Fail(kNoFullRoute, error);
  }
  return true;
}

bool ApplyDns(const std::vector<std::string>& dnsServers, std::string* error) {
  std::vector<std::string> arguments = {"apply-wireguard"};
  arguments.insert(arguments.end(), dnsServers.begin(), dnsServers.end());
  if (RunWireGuardDnsCommand(arguments, error)) {
    return true;
  }
  DiscardTunnel();
  return Fail(kDnsFailed, error);
}

bool AbandonCancelled(std::string* error) {
  std::string discarded;
  return Fail(StopWireGuard(&discarded) ? kCancelled : kCancelledUnclean, error);
}

// Both the configuration and the interface are there.
bool TakeDown(std::string* error) {
  std::string setAside;
  const bool dnsReverted = RunWireGuardDnsCommand({"revert-wireguard"}, &setAside);
  if (!RunQuick(g_wireguard_uses_amnezia.load(), "down", error)) {
    return Fail(kDownFailed, error);
  }
  g_wireguard_uses_amnezia.exchange(false);
  if (InterfaceExists()) {
    return Fail(kInterfaceStays, error);
  }
  if (!SecureRemoveFile(kWireGuardConfig, error)) {
    return false;
  }
  return dnsReverted || Fail(kDnsRevertFailed, error);
}

}  // namespace

EnvironmentList AmneziaEnvironment() {
  return {{"PATH", std::string(kAmneziaWgRuntimeDirectory) + ":/usr/sbin:/usr/bin"},
          {"WG_QUICK_USERSPACE_IMPLEMENTATION", kAmneziaWgEngine}};
}

bool RunWireGuardDnsCommand(const std::vector<std::string>& arguments, std::string* error) {
  ArgumentVector argv = {kDnsHelper};
  for (const std::string& argument : arguments) {
    argv.push_back(argument.c_str());
  }
  return RunCommand(argv, error);
}

bool StopWireGuard(std::string* error) {
  const bool configured = ConfigurationExists();
  const bool up = InterfaceExists();
  if (!configured) {
    // An interface for which there is no configuration cannot be taken down by name.
    return !up || Fail(kForeignInterface, error);
  }
  return up ? TakeDown(error) : SecureRemoveFile(kWireGuardConfig, error);
}

void AdoptWireGuardTool() {
  if (!ConfigurationExists() || !InterfaceExists()) {
    return;
  }
  char* contents = nullptr;
  gsize size = 0;
  if (g_file_get_contents(kWireGuardConfig, &contents, &size, nullptr) == FALSE) {
    return;
  }
  const GCharPtr owner(contents);
  std::string text(contents, size);
  g_wireguard_uses_amnezia.exchange(WireGuardConfigRequiresAmnezia(text));
  SecureClear(&text);
  explicit_bzero(contents, size);
}

bool EngineRuntime::StartWireGuard(const std::string& config,
                                   const std::function<bool()>& cancelled, std::string* error) {
  std::vector<std::string> dnsServers;
  if (!WriteConfiguration(config, &dnsServers, error) ||
      !BringUp(WireGuardConfigRequiresAmnezia(config), error) || !ConfirmTunnel(error) ||
      !ApplyDns(dnsServers, error)) {
    return false;
  }
  // Asked only now: once `up` has begun, the tunnel is brought to a known state first.
  if (cancelled()) {
    return AbandonCancelled(error);
  }
  kind = EngineKind::kWireGuard;
  activeConfigPath = kWireGuardConfig;
  return true;
}

}  // namespace quorvex::linux_service
