// SPDX-License-Identifier: Apache-2.0
#include "service/bus_read_buffer.h"

#include <vector>

#include "runtime/constants.h"

namespace quorvex::service_front {
namespace {

// More than a message's header and paddings can take beside its arguments.
constexpr gsize kHeaderAllowance = 4096;

// A signal that nobody subscribes to, addressed to ourselves: GDBus reads and drops it.
constexpr char kSignalName[] = "ReadBufferOverwritten";

void SendZerosToSelf(GDBusConnection* connection, gsize size) {
  const char* self = g_dbus_connection_get_unique_name(connection);
  if (self == nullptr) {
    return;
  }
  const std::vector<guchar> zeros(size);
  GVariant* payload =
      g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, zeros.data(), zeros.size(), sizeof(guchar));
  static_cast<void>(g_dbus_connection_emit_signal(connection, self, linux_service::kObjectPath,
                                                  linux_service::kInterfaceName, kSignalName,
                                                  g_variant_new("(@ay)", payload), nullptr));
}

// A filter on GDBus's thread: every message passes unchanged.
GDBusMessage* FollowCallWithZeros(GDBusConnection* connection, GDBusMessage* message,
                                  gboolean incoming, gpointer /*userData*/) {
  GVariant* arguments = g_dbus_message_get_body(message);
  if (incoming != FALSE && arguments != nullptr &&
      g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_METHOD_CALL) {
    SendZerosToSelf(connection, g_variant_get_size(arguments) + kHeaderAllowance);
  }
  return message;
}

}  // namespace

void KeepBusReadBufferClean(GDBusConnection* connection) {
  g_dbus_connection_add_filter(connection, FollowCallWithZeros, nullptr, nullptr);
}

}  // namespace quorvex::service_front
