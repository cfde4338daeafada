// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "killswitch/kill_switch.h"
#include "runtime/line_servers.h"
#include "runtime/server_look_up.h"
#include "runtime/sing_box_servers.h"
#include "runtime/xray_servers.h"

namespace quorvex::linux_service {
namespace {

constexpr std::size_t kLongestHost = 255;

// An IPv6 address with a scope is no name either, although GLib does not read it. A name with a
// blank or a control byte does not exist, and the journal should not be asked to show it.
bool IsName(const std::string& host) {
  return std::ranges::none_of(host,
                              [](unsigned char byte) {
                                constexpr unsigned char kDelete = 0x7F;
                                return byte <= ' ' || byte == kDelete || byte == ':';
                              }) &&
         !IsLiteralAddress(host);
}

}  // namespace

const NamedServer* FindServer(const std::vector<NamedServer>& servers, const std::string& name) {
  const auto found = std::ranges::find(servers, name, &NamedServer::name);
  return found == servers.end() ? nullptr : &*found;
}

std::vector<std::string> CollectServerHosts(EngineKind engine, const std::string& rawConfig) {
  switch (engine) {
    case EngineKind::kSingBox:
      return SingBoxServerHosts(rawConfig);
    case EngineKind::kXray:
      return XrayServerHosts(rawConfig);
    case EngineKind::kWireGuard:
      return WireGuardServerHosts(rawConfig);
    case EngineKind::kOpenVpn:
      return OpenVpnServerHosts(rawConfig);
    case EngineKind::kUnsupported:
      break;
  }
  return {};
}

std::vector<std::string> CollectServerNames(EngineKind engine, const std::string& rawConfig) {
  std::vector<std::string> names = CollectServerHosts(engine, rawConfig);
  std::erase_if(names, [](const std::string& host) { return !IsName(host); });
  return names;
}

std::string HostOfEndpoint(std::string_view endpoint) {
  const std::string_view host = endpoint.substr(0, endpoint.rfind(':'));
  const bool isBracketed = host.size() > 1 && host.starts_with('[') && host.ends_with(']');
  return std::string(isBracketed ? host.substr(1, host.size() - 2) : host);
}

void AddServerHost(std::string host, UniqueTexts* hosts) {
  if (!host.empty() && host.size() <= kLongestHost) {
    hosts->Add(std::move(host));
  }
}

}  // namespace quorvex::linux_service
