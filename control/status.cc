// SPDX-License-Identifier: Apache-2.0
#include "control/status.h"

#include "control/json_text.h"
#include "control/output.h"

namespace quorvex::control {
namespace {

using linux_service::EngineKind;
using linux_service::EngineName;
using linux_service::TunnelInterfaceFor;

constexpr const char* kWhen = "%Y-%m-%d %H:%M:%S";

bool HasInterface(const Status& status) {
  return status.engine != EngineKind::kUnsupported;
}

std::string Row(const char* name, const std::string& value) {
  constexpr std::size_t kWidth = 14;
  std::string row(name);
  row.resize(kWidth, ' ');
  return row + Printable(value) + "\n";
}

std::string RowUnlessEmpty(const char* name, const std::string& value) {
  return value.empty() ? "" : Row(name, value);
}

std::string EngineText(const Status& status) {
  return std::string(EngineName(status.engine)) + ", interface " +
         TunnelInterfaceFor(status.engine);
}

std::string Since(const Status& status, std::int64_t now) {
  const std::int64_t begun = status.snapshot.connectedAt;
  return begun == 0 ? "" : LocalTime(begun, kWhen) + ", " + DurationText((now - begun) / 1000);
}

std::string RouteText(const FullRoute& route) {
  if (!route.ipv4 && !route.ipv6) {
    return "none through the tunnel";
  }
  const char* families = route.ipv4 && route.ipv6 ? "IPv4 and IPv6" : nullptr;
  return std::string("all ") +
         (families != nullptr ? families
          : route.ipv4        ? "IPv4"
                              : "IPv6") +
         " through the tunnel";
}

std::string KillSwitchText(KillSwitch state) {
  return state == KillSwitch::kUnknown ? "unknown, the kernel tells root alone"
                                       : KillSwitchWord(state);
}

}  // namespace

std::string StatusText(const Status& status, std::int64_t now) {
  std::string text = Row("Stage", status.snapshot.stage);
  text += RowUnlessEmpty("Profile", status.snapshot.profile);
  text += RowUnlessEmpty("Error", status.snapshot.lastError);
  text += RowUnlessEmpty("Since", Since(status, now));
  if (HasInterface(status)) {
    text += Row("Engine", EngineText(status)) + Row("Routes", RouteText(status.route));
  }
  text += Row("Kill switch", KillSwitchText(status.killSwitch));
  return text + Row("Network", status.network.reachable ? "reachable" : "not reachable");
}

std::string StatusJson(const Status& status, std::int64_t now) {
  const std::int64_t begun = status.snapshot.connectedAt;
  JsonText json;
  json.String("stage", status.snapshot.stage)
      .StringOrNull("profile", status.snapshot.profile)
      .StringOrNull("lastError", status.snapshot.lastError)
      .StringOrNull("connectedSince", begun == 0 ? "" : IsoTime(begun));
  if (begun == 0) {
    json.Null("connectedSeconds");
  } else {
    json.Integer("connectedSeconds", (now - begun) / 1000);
  }
  return json.StringOrNull("engine", HasInterface(status) ? EngineName(status.engine) : "")
      .StringOrNull("interface", TunnelInterfaceFor(status.engine))
      .OpenObject("fullRoute")
      .Boolean("ipv4", status.route.ipv4)
      .Boolean("ipv6", status.route.ipv6)
      .CloseObject()
      .String("killSwitch", KillSwitchWord(status.killSwitch))
      .Boolean("networkReachable", status.network.reachable)
      .End();
}

}  // namespace quorvex::control
