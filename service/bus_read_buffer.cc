// SPDX-License-Identifier: Apache-2.0
#include "service/bus_read_buffer.h"

#include <vector>

#include "runtime/constants.h"

namespace quorvex::service_front {
namespace {

// More than a message's header and paddings can take beside its arguments.
constexpr std::size_t kHeaderAllowance = 4096;

// A signal that nobody subscribes to, addressed to ourselves: GDBus reads and drops it.
constexpr char kSignalName[] = "ReadBufferOverwritten";

}  // namespace

void OverwriteBusReadBuffer(GDBusConnection* connection, std::size_t messageSize) {
  if (connection == nullptr) {
    return;
  }
  const char* self = g_dbus_connection_get_unique_name(connection);
  if (self == nullptr) {
    return;
  }
  const std::vector<guchar> zeros(messageSize + kHeaderAllowance);
  GVariant* payload =
      g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, zeros.data(), zeros.size(), sizeof(guchar));
  // A bus that refuses it leaves the buffer to the next long message; nothing else depends on it.
  static_cast<void>(g_dbus_connection_emit_signal(connection, self, linux_service::kObjectPath,
                                                  linux_service::kInterfaceName, kSignalName,
                                                  g_variant_new("(@ay)", payload), nullptr));
}

}  // namespace quorvex::service_front
