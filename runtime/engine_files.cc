// SPDX-License-Identifier: Apache-2.0
#include "runtime/engine_files.h"

#include <glib.h>
#include <unistd.h>

#include "runtime/command_runner.h"
#include "runtime/constants.h"
#include "runtime/private_files.h"

namespace quorvex::linux_service {
namespace {

constexpr char kRevertFailed[] = "Unable to revert OpenVPN DNS state.";

bool DnsToolsAreInstalled() {
  return g_file_test(kDnsHelper, G_FILE_TEST_IS_EXECUTABLE) != FALSE &&
         g_file_test(kResolveCtl, G_FILE_TEST_IS_EXECUTABLE) != FALSE;
}

bool RemoveOpenVpnFiles(std::string* error) {
  std::string setAside;
  if (DnsToolsAreInstalled() && !RunCommand({kDnsHelper, "revert"}, &setAside)) {
    *error = kRevertFailed;
    return false;
  }
  if (!SecureRemoveFile(kOpenVpnPid, &setAside)) {
    // OpenVPN wrote the pid file, so whatever stands there goes as well as it can.
    static_cast<void>(unlink(kOpenVpnPid));
  }
  return SecureRemoveFile(kOpenVpnConfig, error);
}

}  // namespace

const char* PrivateConfigFor(EngineKind kind) {
  switch (kind) {
    case EngineKind::kSingBox:
      return kSingBoxConfig;
    case EngineKind::kXray:
      return kXrayConfig;
    case EngineKind::kWireGuard:
      return kWireGuardConfig;
    case EngineKind::kOpenVpn:
      return kOpenVpnConfig;
    case EngineKind::kUnsupported:
      break;
  }
  return "";
}

bool RemoveConfigFor(EngineKind kind, std::string* error) {
  // No engine, no file: an empty path is one that does not exist.
  return kind == EngineKind::kOpenVpn ? RemoveOpenVpnFiles(error)
                                      : SecureRemoveFile(PrivateConfigFor(kind), error);
}

}  // namespace quorvex::linux_service
