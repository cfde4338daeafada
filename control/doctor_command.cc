// SPDX-License-Identifier: Apache-2.0
#include "control/commands.h"
#include "control/doctor_checks.h"
#include "control/exit_codes.h"
#include "control/output.h"

namespace quorvex::control {
namespace {

using linux_service::EngineForProtocol;
using linux_service::EngineKind;

// The named engines, or all; nothing, with `failure`, for a name of none.
bool ChooseEngines(const CommandLine& line, EngineSet* engines, Failure* failure) {
  for (const std::string& name : line.arguments) {
    const EngineKind engine = EngineForProtocol(name);
    if (engine == EngineKind::kUnsupported) {
      *failure = {kExitUsage, "There is no engine \"" + name + "\".",
                  "The engines are wireguard, openvpn, sing-box and xray."};
      return false;
    }
    engines->insert(engine);
  }
  if (engines->empty()) {
    *engines = {EngineKind::kSingBox, EngineKind::kXray, EngineKind::kWireGuard,
                EngineKind::kOpenVpn};
  }
  return true;
}

ServiceWord CheckBus(Findings* findings) {
  Failure failure;
  const BusPtr bus = OpenBus(&failure);
  if (bus == nullptr) {
    findings->push_back({FindingState::kMissing, "bus", failure.message,
                         "Install the package dbus and start dbus.service."});
    return {};
  }
  ServiceWord service = CheckService(bus.get(), findings);
  CheckUnit(bus.get(), findings);
  CheckPolkit(bus.get(), findings);
  return service;
}

}  // namespace

int RunDoctor(const CommandLine& line) {
  Failure failure;
  EngineSet engines;
  if (!ChooseEngines(line, &engines, &failure)) {
    return Report(failure, line.json);
  }
  Findings findings;
  const ServiceWord service = CheckBus(&findings);
  CheckPrograms(engines, &findings);
  CheckKernel(engines, &findings);
  CheckLeftovers(service, &findings);
  Print(line.json ? FindingsJson(findings) + "\n" : FindingsText(findings));
  return IsHealthy(findings) ? kExitOk : kExitFailure;
}

}  // namespace quorvex::control
