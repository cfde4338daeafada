// SPDX-License-Identifier: Apache-2.0
#include "runtime/routes.h"

#include <sstream>

#include "runtime/command_runner.h"
#include "runtime/constants.h"

namespace quorvex::linux_service {
namespace {

ArgumentVector AllRoutes(const char* family) {
  return {kIpBinary, family, "route", "show", "table", "all"};
}

// sing-box keeps its routes in a table of its own.
ArgumentVector SingBoxDefaultRoute() {
  return {kIpBinary, "-4", "route", "show", "table", "2022", "default"};
}

bool QueryShowsDefault(const ArgumentVector& query, const char* interface) {
  std::string output;
  return CaptureCommand(query, &output) && OutputContainsRoute(output, "default", interface);
}

bool XrayHasFullRoute() {
  std::string ipv4;
  std::string ipv6;
  return CaptureCommand(AllRoutes("-4"), &ipv4) && CaptureCommand(AllRoutes("-6"), &ipv6) &&
         OutputContainsRoute(ipv4, "default", kXrayInterface) &&
         OutputContainsRoute(ipv6, "default", kXrayInterface);
}

// wg-quick may route only one address family; either suffices.
bool WireGuardHasFullRoute() {
  std::string ipv4;
  if (!CaptureCommand(AllRoutes("-4"), &ipv4)) {
    return false;
  }
  return OutputContainsRoute(ipv4, "default", kWireGuardInterface) ||
         QueryShowsDefault(AllRoutes("-6"), kWireGuardInterface);
}

// OpenVPN may cover everything with two half-routes, which leaves the old default route in place.
bool OpenVpnHasFullRoute() {
  std::string ipv4;
  return CaptureCommand(AllRoutes("-4"), &ipv4) &&
         (OutputContainsRoute(ipv4, "default", kOpenVpnInterface) ||
          (OutputContainsRoute(ipv4, "0.0.0.0/1", kOpenVpnInterface) &&
           OutputContainsRoute(ipv4, "128.0.0.0/1", kOpenVpnInterface)));
}

}  // namespace

bool OutputContainsRoute(const std::string& output, std::string_view prefix,
                         std::string_view interface) {
  const std::string device = " dev " + std::string(interface);
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(prefix) && line.find(device) != std::string::npos) {
      return true;
    }
  }
  return false;
}

bool HasFullRoute(EngineKind kind) {
  switch (kind) {
    case EngineKind::kSingBox:
      return QueryShowsDefault(SingBoxDefaultRoute(), kSingBoxInterface);
    case EngineKind::kXray:
      return XrayHasFullRoute();
    case EngineKind::kWireGuard:
      return WireGuardHasFullRoute();
    case EngineKind::kOpenVpn:
      return OpenVpnHasFullRoute();
    case EngineKind::kUnsupported:
      break;
  }
  return false;
}

}  // namespace quorvex::linux_service
