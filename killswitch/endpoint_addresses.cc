// SPDX-License-Identifier: Apache-2.0
#include <memory>
#include <utility>

#include "killswitch/endpoint_hosts.h"
#include "killswitch/kill_switch.h"
#include "runtime/glib_ptr.h"
#include "runtime/unique_texts.h"

namespace quorvex::linux_service {
namespace {

using AddressListPtr = std::unique_ptr<GList, ReleaseWith<g_resolver_free_addresses>>;

// A name that does not resolve contributes nothing.
std::vector<std::string> AskResolver(const std::string& host) {
  std::vector<std::string> addresses;
  const GObjectPtr<GResolver> resolver(g_resolver_get_default());
  const AddressListPtr found(
      g_resolver_lookup_by_name(resolver.get(), host.c_str(), nullptr, nullptr));
  for (const GList* entry = found.get(); entry != nullptr; entry = entry->next) {
    const GCharPtr text(g_inet_address_to_string(static_cast<GInetAddress*>(entry->data)));
    addresses.emplace_back(text.get());
  }
  return addresses;
}

}  // namespace

bool IsLiteralAddress(const std::string& host) {
  return GObjectPtr<GInetAddress>(g_inet_address_new_from_string(host.c_str())) != nullptr;
}

std::vector<std::string> CollectEndpointAddresses(EngineKind kind, const std::string& configuration,
                                                  const NameLookUp& lookUp) {
  UniqueTexts addresses;
  for (const std::string& host : CollectEndpointHosts(kind, configuration)) {
    if (IsLiteralAddress(host)) {
      addresses.Add(host);
      continue;
    }
    for (std::string& address : lookUp(host)) {
      addresses.Add(std::move(address));
    }
  }
  return std::move(addresses).Take();
}

std::vector<std::string> CollectEndpointAddresses(EngineKind kind,
                                                  const std::string& configuration) {
  return CollectEndpointAddresses(kind, configuration, AskResolver);
}

}  // namespace quorvex::linux_service
