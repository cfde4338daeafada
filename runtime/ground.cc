// SPDX-License-Identifier: Apache-2.0
#include "runtime/ground.h"

#include <gio/gio.h>

#include <array>

#include "runtime/constants.h"
#include "runtime/engine_files.h"
#include "runtime/glib_ptr.h"
#include "runtime/ground_record.h"
#include "runtime/kernel_links.h"
#include "runtime/leftovers.h"
#include "runtime/orphans.h"

namespace quorvex::linux_service {
namespace {

std::string AddressBytes(const std::string& text) {
  const GObjectPtr<GInetAddress> address(g_inet_address_new_from_string(text.c_str()));
  if (address == nullptr) {
    return {};
  }
  return {reinterpret_cast<const char*>(g_inet_address_to_bytes(address.get())),
          g_inet_address_get_native_size(address.get())};
}

void KeepAddress(const std::string& text, GroundRecord* record) {
  if (std::string bytes = AddressBytes(text); !bytes.empty()) {
    record->servers.push_back(std::move(bytes));
  }
}

void KeepServers(const std::string& rawConfig, const std::vector<NamedServer>& servers,
                 GroundRecord* record) {
  for (const std::string& host : CollectServerHosts(record->engine, rawConfig)) {
    KeepAddress(host, record);
  }
  for (const NamedServer& server : servers) {
    for (const std::string& address : server.addresses) {
      KeepAddress(address, record);
    }
  }
}

// These end with no process. One whose server in user space cannot be found is left to wg-quick.
constexpr std::array kKernelTunnels = {"wireguard", "amneziawg"};
// Normally gone with the engine; one that was made to stay has our name all the same.
constexpr std::array kTunDevices = {"tun"};

bool RemoveInterface(EngineKind engine, std::string* error) {
  const std::string name = TunnelInterfaceFor(engine);
  if (engine != EngineKind::kWireGuard) {
    return DeleteLink(name, kTunDevices, error);
  }
  // Without its configuration nobody can tell whether it is still ours.
  if (TunnelInterfaceExists(engine) && g_file_test(kWireGuardConfig, G_FILE_TEST_EXISTS) == FALSE) {
    return true;
  }
  EndWireGuardServers();
  return DeleteLink(name, kKernelTunnels, error);
}

// One that its engine's own end could not remove. OpenVPN's is kept as long as the system's DNS
// could not be reverted.
bool RemoveConfiguration(EngineKind engine, std::string* error) {
  return engine == EngineKind::kOpenVpn ||
         g_file_test(PrivateConfigFor(engine), G_FILE_TEST_EXISTS) == FALSE ||
         RemoveConfigFor(engine, error);
}

enum class Cleared { kYes, kNotYet, kFailed };

Cleared Clear(const GroundRecord& record, std::string* error) {
  if (!RemoveInterface(record.engine, error)) {
    return Cleared::kFailed;
  }
  if (TunnelInterfaceExists(record.engine)) {
    return Cleared::kNotYet;
  }
  const bool removed = RemoveLeftovers(record, error);
  return RemoveConfiguration(record.engine, error) && removed ? Cleared::kYes : Cleared::kFailed;
}

}  // namespace

bool TunnelInterfaceExists(EngineKind engine) {
  const std::string path = std::string("/sys/class/net/") + TunnelInterfaceFor(engine);
  return *TunnelInterfaceFor(engine) != '\0' &&
         g_file_test(path.c_str(), G_FILE_TEST_IS_DIR) != FALSE;
}

bool PrepareGround(EngineKind engine, const std::string& rawConfig,
                   const std::vector<NamedServer>& servers, std::string* error) {
  if (TunnelInterfaceExists(engine)) {
    *error = std::string("Another program holds the tunnel interface ") +
             TunnelInterfaceFor(engine) + ".";
    return false;
  }
  GroundRecord record;
  record.engine = engine;
  KeepServers(rawConfig, servers, &record);
  return NoteWhatStands(&record, error) && StoreGroundRecord(record, error);
}

void NoteTunnel(TunnelAge age) {
  std::string error = "there is no record";
  std::optional<GroundRecord> record;
  GroundRecord changes;
  changes.isSettled = age == TunnelAge::kSettled;
  if (!LoadGroundRecord(&record, &error) || !record ||
      !NoteWhatChanged(*record, &changes, &error) || !AppendGroundRecord(changes, &error)) {
    g_log(nullptr, G_LOG_LEVEL_WARNING, "What the tunnel changed could not be recorded: %s",
          error.c_str());
  }
}

void ClearGround() {
  std::string error;
  std::optional<GroundRecord> record;
  Cleared cleared = Cleared::kFailed;
  if (LoadGroundRecord(&record, &error)) {
    // Without a record, or with half of one, no engine was started.
    cleared = record ? Clear(*record, &error) : Cleared::kYes;
  }
  const bool removed = cleared != Cleared::kYes || RemoveGroundRecord(&error);
  if (cleared == Cleared::kFailed || !removed) {
    g_log(nullptr, G_LOG_LEVEL_WARNING, "Something of the tunnel is left behind: %s",
          error.c_str());
  }
}

}  // namespace quorvex::linux_service
