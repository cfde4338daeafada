// SPDX-License-Identifier: Apache-2.0
#include <glib.h>
#include <sys/stat.h>
#include <sys/utsname.h>

#include <array>
#include <cerrno>
#include <string>

#include "control/doctor_checks.h"
#include "control/kernel_view.h"
#include "runtime/constants.h"

namespace quorvex::control {
namespace {

using linux_service::EngineKind;
using linux_service::TunnelInterfaceFor;

using DirectoryPtr = std::unique_ptr<GDir, ReleaseWith<g_dir_close>>;

constexpr const char* kTunDevice = "/dev/net/tun";
constexpr const char* kCleanUp = "Run \"quorvexvpnctl disconnect\".";

enum class Module { kLoaded, kAvailable, kAbsent, kUnknown };

// Whether the list of this kernel's modules names the one; nothing can be said without the list.
Module LookUpModule(const std::string& list, const std::string& name) {
  char* text = nullptr;
  if (g_file_get_contents(list.c_str(), &text, nullptr, nullptr) == FALSE) {
    return Module::kUnknown;
  }
  const GCharPtr owned(text);
  const std::string file = "/" + name + ".ko";
  return std::string_view(text).find(file) != std::string_view::npos ? Module::kAvailable
                                                                     : Module::kAbsent;
}

Module FindModule(const std::string& name) {
  if (g_file_test(("/sys/module/" + name).c_str(), G_FILE_TEST_IS_DIR) != FALSE) {
    return Module::kLoaded;
  }
  utsname kernel = {};
  uname(&kernel);
  const std::string folder = std::string("/lib/modules/") + kernel.release + "/";
  const Module builtIn = LookUpModule(folder + "modules.builtin", name);
  return builtIn == Module::kAvailable ? builtIn : LookUpModule(folder + "modules.dep", name);
}

Finding FindingOfModule(Module module, const std::string& name, const std::string& advice) {
  switch (module) {
    case Module::kLoaded:
      return {FindingState::kOk, "kernel", name + " is loaded", ""};
    case Module::kAvailable:
      return {FindingState::kOk, "kernel", name + " is there and is loaded when it is needed", ""};
    case Module::kAbsent:
      return {FindingState::kMissing, "kernel", name + " is not part of this kernel", advice};
    case Module::kUnknown:
      break;
  }
  return {FindingState::kUnknown, "kernel", name + ": this kernel's modules are not to be seen",
          ""};
}

Finding FindingOfTun() {
  struct stat status = {};
  if (stat(kTunDevice, &status) == 0 && S_ISCHR(status.st_mode)) {
    return {FindingState::kOk, "kernel", std::string(kTunDevice) + " is there", ""};
  }
  return {FindingState::kMissing, "kernel", std::string(kTunDevice) + " is not there",
          "Run \"modprobe tun\"; in a container, let the host hand the device in."};
}

// wg-quick takes the program where the kernel has no WireGuard.
Finding FindingOfWireGuard() {
  const Module module = FindModule("wireguard");
  const bool inKernel = module == Module::kLoaded || module == Module::kAvailable;
  const GCharPtr program(g_find_program_in_path("wireguard-go"));
  if (!inKernel && program != nullptr) {
    return {FindingState::kOk, "kernel",
            std::string("no wireguard to be seen, but the program ") + program.get(), ""};
  }
  return FindingOfModule(module, "wireguard",
                         "Install a kernel with WireGuard, or the package wireguard-go.");
}

// An answer about the kill switch, whichever, comes from nf_tables.
Finding FindingOfNfTables() {
  const Module module =
      AskKillSwitch() != KillSwitch::kUnknown ? Module::kLoaded : FindModule("nf_tables");
  return FindingOfModule(module, "nf_tables", "The kill switch needs a kernel with nf_tables.");
}

bool CheckInterfaces(Findings* findings) {
  bool found = false;
  for (const EngineKind engine : EnginesWithInterface()) {
    findings->push_back(
        {FindingState::kLeftover, "leftovers",
         std::string("interface ") + TunnelInterfaceFor(engine) + " exists without a tunnel",
         kCleanUp});
    found = true;
  }
  return found;
}

// Whether there is something; what root alone may see counts as nothing, and is said.
bool CheckFolder(const char* path, Findings* findings) {
  GErrorSlot error;
  const DirectoryPtr folder(g_dir_open(path, 0, error.Out()));
  if (folder != nullptr) {
    const char* name = g_dir_read_name(folder.get());
    if (name == nullptr) {
      return false;
    }
    findings->push_back({FindingState::kLeftover, "leftovers",
                         std::string(path) + "/" + name + " lies there without a tunnel",
                         kCleanUp});
    return true;
  }
  if (!error.Matches(G_FILE_ERROR, G_FILE_ERROR_NOENT)) {
    findings->push_back({FindingState::kUnknown, "leftovers",
                         std::string(path) + " can be seen by root alone", ""});
  }
  return false;
}

bool CheckKillSwitch(Findings* findings) {
  const KillSwitch state = AskKillSwitch();
  if (state == KillSwitch::kUnknown) {
    findings->push_back({FindingState::kUnknown, "leftovers",
                         "whether a kill switch is loaded the kernel tells root alone", ""});
  }
  if (state == KillSwitch::kOn) {
    findings->push_back({FindingState::kLeftover, "leftovers",
                         "the kill switch is closed without a tunnel, as it stays when one breaks",
                         kCleanUp});
  }
  return state == KillSwitch::kOn;
}

}  // namespace

void CheckKernel(const EngineSet& engines, Findings* findings) {
  findings->push_back(FindingOfTun());
  if (engines.contains(EngineKind::kWireGuard)) {
    findings->push_back(FindingOfWireGuard());
  }
  findings->push_back(FindingOfNfTables());
}

void CheckLeftovers(const ServiceWord& service, Findings* findings) {
  const bool tunnel =
      service.answers && service.stage != "disconnected" && service.stage != "error";
  if (tunnel) {
    findings->push_back(
        {FindingState::kNote, "leftovers", "not looked for, as there is a tunnel", ""});
    return;
  }
  bool found = CheckInterfaces(findings);
  for (const char* path : {linux_service::kRuntimeDirectory, linux_service::kGroundDirectory}) {
    found = CheckFolder(path, findings) || found;
  }
  found = CheckKillSwitch(findings) || found;
  if (!found) {
    findings->push_back({FindingState::kOk, "leftovers", "none to be seen", ""});
  }
}

}  // namespace quorvex::control
