// SPDX-License-Identifier: Apache-2.0
#include "service/network_path.h"

#include "service/dictionary_builder.h"
#include "service/service.h"
#include "service/snapshot.h"

namespace quorvex::service_front {
namespace {

// Every notification is forwarded, even when availability did not change.
void NetworkChanged(GNetworkMonitor* /*monitor*/, gboolean available, gpointer userData) {
  auto* service = static_cast<Service*>(userData);
  service->networkAvailable.exchange(available != FALSE);
  const GVariantPtr value = NetworkPathVariant(service);
  EmitDictionarySignal(service->connection.get(), "NetworkPathChanged", value.get());
}

}  // namespace

GVariantPtr NetworkPathVariant(Service* service) {
  const bool available = service->networkAvailable.load();
  DictionaryBuilder path;
  path.AddString("status", available ? "satisfied" : "unsatisfied");
  path.AddBoolean("isReachable", available);
  path.AddString("interfaceType", "unknown");
  path.AddBoolean("isExpensive", false);
  path.AddBoolean("isConstrained", false);
  path.AddInt64("timestampEpochMillis", NowEpochMillis());
  return path.End();
}

void WatchNetwork(Service* service) {
  GNetworkMonitor* monitor = g_network_monitor_get_default();
  if (monitor == nullptr) {
    return;
  }
  service->networkMonitor.reset(static_cast<GNetworkMonitor*>(g_object_ref(monitor)));
  service->networkAvailable.exchange(g_network_monitor_get_network_available(monitor) != FALSE);
  service->networkChangedHandler =
      g_signal_connect(monitor, "network-changed", G_CALLBACK(NetworkChanged), service);
}

void UnwatchNetwork(Service* service) {
  if (service->networkMonitor == nullptr) {
    return;
  }
  if (service->networkChangedHandler != 0) {
    g_signal_handler_disconnect(service->networkMonitor.get(), service->networkChangedHandler);
    service->networkChangedHandler = 0;
  }
  service->networkMonitor.reset();
}

}  // namespace quorvex::service_front
