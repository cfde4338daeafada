// SPDX-License-Identifier: Apache-2.0
#include <glib.h>
#include <sys/stat.h>

#include <string>

#include "runtime/constants.h"
#include "runtime/engine_runtime.h"

namespace quorvex::linux_service {
namespace {

bool IsExecutable(const char* path) {
  return g_file_test(path, G_FILE_TEST_IS_EXECUTABLE) != FALSE;
}

// A symbolic link does not count, so that the data files cannot be redirected.
bool IsRegularFile(const char* path) {
  struct stat status = {};
  return lstat(path, &status) == 0 && S_ISREG(status.st_mode);
}

// What WireGuard and OpenVPN need beside their own programs.
bool CommonToolsAreInstalled() {
  return IsExecutable(kDnsHelper) && IsExecutable(kResolveCtl) && IsExecutable(kIpBinary) &&
         IsExecutable(kTimeoutBinary);
}

}  // namespace

bool EngineRuntime::IsAvailable(EngineKind engine) const {
  switch (engine) {
    case EngineKind::kSingBox:
      return IsExecutable(kSingBoxBinary) && IsExecutable(kIpBinary);
    case EngineKind::kXray:
      return IsExecutable(kXrayBinary) && IsRegularFile(kXrayGeoIp) &&
             IsRegularFile(kXrayGeoSite) && IsExecutable(kIpBinary);
    case EngineKind::kWireGuard:
      return IsExecutable(kWireGuardQuick) && IsExecutable(kWireGuardTool) &&
             CommonToolsAreInstalled();
    case EngineKind::kOpenVpn:
      return IsExecutable(kOpenVpnBinary) && CommonToolsAreInstalled();
    case EngineKind::kUnsupported:
      break;
  }
  return false;
}

std::string EngineRuntime::AvailabilitySummary() const {
  const auto state = [this](EngineKind engine) {
    return std::string(IsAvailable(engine) ? "ready" : "missing");
  };
  return "Sing-box " + state(EngineKind::kSingBox) + "; Xray " + state(EngineKind::kXray) +
         "; WireGuard " + state(EngineKind::kWireGuard) + "; OpenVPN " +
         state(EngineKind::kOpenVpn);
}

}  // namespace quorvex::linux_service
