// SPDX-License-Identifier: Apache-2.0
#include "control/fault_place.h"

#include "control/json_places.h"
#include "control/line_places.h"
#include "runtime/engine_catalogue.h"

namespace quorvex::control {

using linux_service::EngineForProtocol;
using linux_service::EngineKind;

std::optional<FaultPlace> LocateFault(const std::string& protocol, const std::string& rawConfig,
                                      const std::string& message) {
  switch (EngineForProtocol(protocol)) {
    case EngineKind::kWireGuard:
      return LocateInWireGuard(rawConfig, message);
    case EngineKind::kOpenVpn:
      return LocateInOpenVpn(rawConfig, message);
    case EngineKind::kSingBox:
    case EngineKind::kXray:
      return LocateInJson(protocol, rawConfig, message);
    case EngineKind::kUnsupported:
      break;
  }
  return {};
}

std::string DescribePlace(const FaultPlace& place) {
  std::string text = "line " + std::to_string(place.line);
  if (place.column != 0) {
    text += ", column " + std::to_string(place.column);
  }
  return place.name.empty() ? text : text + " (" + place.name + ")";
}

}  // namespace quorvex::control
