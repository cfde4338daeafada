// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "killswitch/endpoint_hosts.h"
#include "runtime/glib_ptr.h"
#include "runtime/server_look_up.h"
#include "runtime/xray_servers.h"

namespace quorvex::linux_service {
namespace {

bool IsLiteralAddress(const std::string& host) {
  return GObjectPtr<GInetAddress>(g_inet_address_new_from_string(host.c_str())) != nullptr;
}

}  // namespace

const NamedServer* FindServer(const std::vector<NamedServer>& servers, const std::string& name) {
  const auto found = std::ranges::find(servers, name, &NamedServer::name);
  return found == servers.end() ? nullptr : &*found;
}

std::vector<std::string> CollectServerNames(EngineKind engine, const std::string& rawConfig) {
  std::vector<std::string> names = CollectEndpointHosts(engine, rawConfig);
  if (engine == EngineKind::kXray) {
    AddXrayServerHosts(rawConfig, &names);
  }
  std::erase_if(names, IsLiteralAddress);
  return names;
}

}  // namespace quorvex::linux_service
