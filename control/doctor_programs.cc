// SPDX-License-Identifier: Apache-2.0
#include <glib.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "control/doctor_checks.h"
#include "runtime/constants.h"

namespace quorvex::control {
namespace {

using linux_service::EngineKind;
using linux_service::EngineName;

constexpr const char* kOwnPrograms =
    "It comes with the QuorvexVPN client: install the client again.";

// A file that the service needs, by what for.
struct NeededFile {
  const char* path;
  const char* advice;
  // A program, or data, of which a link does not count.
  bool program = true;
};

constexpr std::array kWireGuardFiles = {
    NeededFile{linux_service::kWireGuardQuick, "Install the package wireguard-tools."},
    NeededFile{linux_service::kWireGuardTool, "Install the package wireguard-tools."},
};
constexpr std::array kOpenVpnFiles = {
    NeededFile{linux_service::kOpenVpnBinary, "Install the package openvpn."},
};
constexpr std::array kSingBoxFiles = {NeededFile{linux_service::kSingBoxBinary, kOwnPrograms}};
constexpr std::array kXrayFiles = {
    NeededFile{linux_service::kXrayBinary, kOwnPrograms},
    NeededFile{linux_service::kXrayGeoIp, kOwnPrograms, false},
    NeededFile{linux_service::kXrayGeoSite, kOwnPrograms, false},
};
constexpr std::array kAmneziaFiles = {
    NeededFile{linux_service::kAmneziaWgQuick, kOwnPrograms},
    NeededFile{linux_service::kAmneziaWgTool, kOwnPrograms},
    NeededFile{linux_service::kAmneziaWgEngine, kOwnPrograms},
};

constexpr std::array kToolsOfAll = {
    NeededFile{linux_service::kIpBinary, "Install the package iproute2."},
    NeededFile{linux_service::kTimeoutBinary, "Install the package coreutils."},
    NeededFile{linux_service::kNftBinary,
               "Install the package nftables; the kill switch needs it."},
};
constexpr std::array kToolsForNames = {
    NeededFile{linux_service::kResolveCtl, "Install the package systemd-resolved."},
    NeededFile{linux_service::kDnsHelper, kOwnPrograms},
};

bool IsThere(const NeededFile& file) {
  if (file.program) {
    return g_file_test(file.path, G_FILE_TEST_IS_EXECUTABLE) != FALSE;
  }
  struct stat status = {};
  return lstat(file.path, &status) == 0 && S_ISREG(status.st_mode);
}

std::string WhatItIs(const NeededFile& file) {
  if (g_file_test(file.path, G_FILE_TEST_EXISTS) == FALSE) {
    return " is not there";
  }
  return file.program ? " is no program" : " is no regular file";
}

// One finding for each file that is not there; one for all when all are.
template <typename Files>
void CheckFiles(const char* topic, const Files& files, Findings* findings) {
  if (std::ranges::all_of(files, IsThere)) {
    findings->push_back({FindingState::kOk, topic, "all programs are there", ""});
    return;
  }
  for (const NeededFile& file : files) {
    if (!IsThere(file)) {
      findings->push_back({FindingState::kMissing, topic, file.path + WhatItIs(file), file.advice});
    }
  }
}

// Only profiles with keys of its own need it, so its absence as a whole is no fault.
void CheckAmnezia(Findings* findings) {
  if (std::ranges::none_of(kAmneziaFiles, IsThere)) {
    findings->push_back({FindingState::kNote, "AmneziaWG",
                         "not installed; only profiles with its own keys need it", ""});
    return;
  }
  CheckFiles("AmneziaWG", kAmneziaFiles, findings);
}

}  // namespace

void CheckPrograms(const EngineSet& engines, Findings* findings) {
  const auto wanted = [&engines](EngineKind engine) { return engines.contains(engine); };
  if (wanted(EngineKind::kSingBox)) {
    CheckFiles(EngineName(EngineKind::kSingBox), kSingBoxFiles, findings);
  }
  if (wanted(EngineKind::kXray)) {
    CheckFiles(EngineName(EngineKind::kXray), kXrayFiles, findings);
  }
  if (wanted(EngineKind::kWireGuard)) {
    CheckFiles(EngineName(EngineKind::kWireGuard), kWireGuardFiles, findings);
    CheckAmnezia(findings);
  }
  if (wanted(EngineKind::kOpenVpn)) {
    CheckFiles(EngineName(EngineKind::kOpenVpn), kOpenVpnFiles, findings);
  }
  CheckFiles("tools", kToolsOfAll, findings);
  if (wanted(EngineKind::kWireGuard) || wanted(EngineKind::kOpenVpn)) {
    CheckFiles("DNS", kToolsForNames, findings);
  }
}

}  // namespace quorvex::control
