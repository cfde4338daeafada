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

}  // namespace

ResolverAnswer AskResolver(const std::string& name) {
  const GObjectPtr<GResolver> resolver(g_resolver_get_default());
  GErrorSlot error;
  const AddressListPtr found(
      g_resolver_lookup_by_name(resolver.get(), name.c_str(), nullptr, error.Out()));
  // The text comes from a thread of GLib's. GLib's own copy of it is made under locks that
  // ThreadSanitizer does not see.
  ResolverAnswer answer = {{}, GCharPtr(g_strdup(error.MessageOr(""))).get()};
  for (const GList* entry = found.get(); entry != nullptr; entry = entry->next) {
    const GCharPtr text(g_inet_address_to_string(static_cast<GInetAddress*>(entry->data)));
    answer.addresses.emplace_back(text.get());
  }
  return answer;
}

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
  // A name that does not resolve contributes nothing.
  return CollectEndpointAddresses(
      kind, configuration, [](const std::string& name) { return AskResolver(name).addresses; });
}

}  // namespace quorvex::linux_service
