// SPDX-License-Identifier: Apache-2.0
//
// What `doctor` looks at. Each check adds its findings; none changes anything.
#pragma once

#include <set>

#include "control/bus.h"
#include "control/doctor_findings.h"
#include "runtime/engine_catalogue.h"

namespace quorvex::control {

// The engines that the user cares for.
using EngineSet = std::set<linux_service::EngineKind>;

// What the service has said; empty when it does not answer.
struct ServiceWord {
  bool answers = false;
  std::string stage;
};

// The bus's name, its activation and the service behind it.
ServiceWord CheckService(GDBusConnection* bus, Findings* findings);
// The unit, if systemd runs this machine.
void CheckUnit(GDBusConnection* bus, Findings* findings);
// polkit, the action, and what it thinks of the caller.
void CheckPolkit(GDBusConnection* bus, Findings* findings);
// Programs and data files, each engine's own and those that several need.
void CheckPrograms(const EngineSet& engines, Findings* findings);
// Devices and modules.
void CheckKernel(const EngineSet& engines, Findings* findings);
// Interfaces, files and the kill switch while there is no tunnel.
void CheckLeftovers(const ServiceWord& service, Findings* findings);

}  // namespace quorvex::control
