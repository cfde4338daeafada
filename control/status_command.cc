// SPDX-License-Identifier: Apache-2.0
#include <glib.h>

#include "control/bus.h"
#include "control/commands.h"
#include "control/exit_codes.h"
#include "control/output.h"
#include "control/status.h"

namespace quorvex::control {
namespace {

bool AskAll(GDBusConnection* bus, Status* status, Failure* failure) {
  const GVariantPtr snapshot = AskService(bus, "GetConnectionSnapshot", kPatienceMs, failure);
  if (snapshot == nullptr) {
    return false;
  }
  const GVariantPtr network = AskService(bus, "GetNetworkPath", kPatienceMs, failure);
  if (network == nullptr) {
    return false;
  }
  status->snapshot = ReadSnapshot(snapshot.get());
  status->network = ReadNetworkPath(network.get());
  return true;
}

void LookAtKernel(Status* status) {
  const auto engines = EnginesWithInterface();
  if (!engines.empty()) {
    status->engine = engines.front();
    status->route = FullRouteThrough(linux_service::TunnelInterfaceFor(status->engine));
  }
  status->killSwitch = AskKillSwitch();
}

}  // namespace

int RunStatus(const CommandLine& line) {
  Failure failure;
  Status status;
  const BusPtr bus = OpenBus(&failure);
  if (bus == nullptr || !AskAll(bus.get(), &status, &failure)) {
    return Report(failure, line.json);
  }
  LookAtKernel(&status);
  const std::int64_t now = g_get_real_time() / 1000;
  Print(line.json ? StatusJson(status, now) + "\n" : StatusText(status, now));
  return line.connected && status.snapshot.stage != "connected" ? kExitFailure : kExitOk;
}

}  // namespace quorvex::control
