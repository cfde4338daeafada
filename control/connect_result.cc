// SPDX-License-Identifier: Apache-2.0
#include "control/connect_result.h"

#include "control/json_text.h"
#include "control/output.h"
#include "runtime/engine_catalogue.h"

namespace quorvex::control {
namespace {

using linux_service::EngineForProtocol;
using linux_service::EngineName;
using linux_service::TunnelInterfaceFor;

constexpr const char* kUnprotected =
    "The kill switch is NOT active: the tunnel is up, but traffic can go past it.\n";

std::string Seconds(std::int64_t milliseconds) {
  return std::to_string(milliseconds / 1000) + "." + std::to_string(milliseconds % 1000 / 100) +
         " s";
}

const char* KillSwitchWord(ConnectFollower::KillSwitch state) {
  switch (state) {
    case ConnectFollower::KillSwitch::kActive:
      return "on";
    case ConnectFollower::KillSwitch::kNotApplied:
      return "failed";
    case ConnectFollower::KillSwitch::kSilent:
      break;
  }
  return "off";
}

}  // namespace

std::string ConnectText(const ConnectResult& result, const std::string& profileId,
                        const std::string& protocol) {
  const auto engine = EngineForProtocol(protocol);
  const std::string up = "connected in " + Seconds(result.milliseconds) + ": " +
                         Printable(profileId) + ", " + EngineName(engine) + " through " +
                         TunnelInterfaceFor(engine) + "\n";
  return result.exitCode == kExitNoKillSwitch ? up + kUnprotected : up;
}

std::string ConnectJson(const ConnectResult& result, const std::string& profileId,
                        const std::string& protocol) {
  const auto engine = EngineForProtocol(protocol);
  const Failure failure = result.failure.value_or(Failure());
  return JsonText()
      .Boolean("connected", !result.failure)
      .String("profile", profileId)
      .String("protocol", protocol)
      .String("engine", EngineName(engine))
      .String("interface", TunnelInterfaceFor(engine))
      .String("killSwitch", KillSwitchWord(result.killSwitch))
      .Integer("milliseconds", result.milliseconds)
      .StringOrNull("error", failure.message)
      .StringOrNull("hint", failure.hint)
      .Integer("exitCode", result.exitCode)
      .End();
}

}  // namespace quorvex::control
