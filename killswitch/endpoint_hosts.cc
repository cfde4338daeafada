// SPDX-License-Identifier: Apache-2.0
#include "killswitch/endpoint_hosts.h"

#include <utility>

#include "killswitch/host_readers.h"

namespace quorvex::linux_service {
namespace {

constexpr std::size_t kLongestHost = 255;
constexpr char kTrimSet[] = " \t\r\n";

}  // namespace

std::string TrimAscii(const std::string& text) {
  const std::size_t first = text.find_first_not_of(kTrimSet);
  if (first == std::string::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(kTrimSet) - first + 1);
}

void AddHost(HostList* hosts, const std::string& candidate) {
  std::string host = TrimAscii(candidate);
  if (!host.empty() && host.size() <= kLongestHost) {
    hosts->Add(std::move(host));
  }
}

std::vector<std::string> CollectEndpointHosts(EngineKind kind, const std::string& configuration) {
  HostList hosts;
  switch (kind) {
    case EngineKind::kSingBox:
      ReadSingBoxHosts(configuration, &hosts);
      break;
    case EngineKind::kXray:
      ReadXrayHosts(configuration, &hosts);
      break;
    case EngineKind::kWireGuard:
      ReadWireGuardHosts(configuration, &hosts);
      break;
    case EngineKind::kOpenVpn:
      ReadOpenVpnHosts(configuration, &hosts);
      break;
    case EngineKind::kUnsupported:
      break;
  }
  return std::move(hosts).Take();
}

}  // namespace quorvex::linux_service
