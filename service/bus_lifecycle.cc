// SPDX-License-Identifier: Apache-2.0
#include "service/bus_lifecycle.h"

#include "runtime/constants.h"
#include "service/bus_read_buffer.h"
#include "service/introspection.h"
#include "service/method_dispatch.h"
#include "service/service.h"
#include "service/snapshot.h"

namespace quorvex::service_front {
namespace {

GDBusNodeInfoPtr ParseIntrospection() {
  GErrorSlot error;
  GDBusNodeInfoPtr node(g_dbus_node_info_new_for_xml(kIntrospectionXml, error.Out()));
  if (node == nullptr) {
    g_log(nullptr, G_LOG_LEVEL_ERROR, "Unable to parse D-Bus interface: %s", error.MessageOr(""));
  }
  return node;
}

void RegisterObject(Service* service) {
  const GDBusNodeInfoPtr node = ParseIntrospection();
  GErrorSlot error;
  service->registrationId = g_dbus_connection_register_object(
      service->connection.get(), linux_service::kObjectPath, node->interfaces[0], &kInterfaceVTable,
      service, nullptr, error.Out());
  if (service->registrationId == 0) {
    g_log(nullptr, G_LOG_LEVEL_ERROR, "Unable to register D-Bus object: %s", error.MessageOr(""));
  }
}

}  // namespace

void BusAcquired(GDBusConnection* connection, const char* /*name*/, gpointer userData) {
  auto* service = static_cast<Service*>(userData);
  service->connection.reset(static_cast<GDBusConnection*>(g_object_ref(connection)));
  // GLib would answer the end of the bus with a SIGTERM to ourselves, and the lost name would pass
  // for an ordinary stop.
  g_dbus_connection_set_exit_on_close(connection, FALSE);
  KeepBusReadBufferClean(connection);
  RegisterObject(service);
  EmitLog(service, "info", "QuorvexVPN Linux service started.");
}

void NameLost(GDBusConnection* /*connection*/, const char* /*name*/, gpointer userData) {
  auto* service = static_cast<Service*>(userData);
  service->exitFailure.exchange(true);
  service->shuttingDown.exchange(true);
  service->generation.fetch_add(1);
  g_log(nullptr, G_LOG_LEVEL_WARNING, "QuorvexVPN Linux service lost its D-Bus name.");
  g_main_loop_quit(service->loop.get());
}

}  // namespace quorvex::service_front
