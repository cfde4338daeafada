// SPDX-License-Identifier: Apache-2.0
#include "service/bus_read_buffer.h"

#include <cstring>
#include <optional>
#include <vector>

#include "runtime/constants.h"
#include "runtime/glib_ptr.h"

namespace quorvex::service_front {
namespace {

// A signal that nobody subscribes to, addressed to ourselves: GDBus reads and drops it.
constexpr char kSignalName[] = "ReadBufferOverwritten";

using BytesPtr = std::unique_ptr<guchar, ReleaseWith<g_free>>;

GObjectPtr<GDBusMessage> ZerosTo(const char* self, gsize count) {
  GObjectPtr<GDBusMessage> message(g_dbus_message_new_signal(
      linux_service::kObjectPath, linux_service::kInterfaceName, kSignalName));
  g_dbus_message_set_destination(message.get(), self);
  const std::vector<guchar> zeros(count);
  g_dbus_message_set_body(
      message.get(),
      g_variant_new("(@ay)", g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, zeros.data(),
                                                       zeros.size(), sizeof(guchar))));
  return message;
}

// What the message takes on the wire, in bytes.
std::optional<gsize> WireSize(GDBusConnection* connection, GDBusMessage* message) {
  gsize size = 0;
  const BytesPtr blob(g_dbus_message_to_blob(
      message, &size, g_dbus_connection_get_capabilities(connection), nullptr));
  return blob == nullptr ? std::nullopt : std::optional(size);
}

// What the bus daemon adds to a message when it passes it on: the header field with the sender's
// name, which is a code, a one-letter signature and a string, padded to eight bytes.
gsize SenderFieldSize(const char* sender) {
  constexpr gsize kCodeSignatureLengthAndNul = 9;
  constexpr gsize kAlignment = 8;
  const gsize size = kCodeSignatureLengthAndNul + std::strlen(sender);
  return (size + kAlignment - 1) / kAlignment * kAlignment;
}

// Never longer than the call was when it was sent: the bus let that one pass, but it throws out
// whoever sends more than it allows, and a caller could choose his length so that we do. The bus
// adds our name as it had added the caller's, so that the whole call is overwritten (but for eight
// bytes at its end when the caller's name is so much longer than ours).
void SendZerosAsLongAs(GDBusConnection* connection, GDBusMessage* call) {
  const char* self = g_dbus_connection_get_unique_name(connection);
  const char* sender = g_dbus_message_get_sender(call);
  if (self == nullptr || sender == nullptr) {
    return;
  }
  const std::optional<gsize> received = WireSize(connection, call);
  const std::optional<gsize> least = WireSize(connection, ZerosTo(self, 0).get());
  if (!received || !least) {
    return;
  }
  const gsize overhead = *least + SenderFieldSize(sender);
  const GObjectPtr<GDBusMessage> zeros =
      ZerosTo(self, *received > overhead ? *received - overhead : 0);
  static_cast<void>(g_dbus_connection_send_message(
      connection, zeros.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr));
}

// A filter on GDBus's thread: every message passes unchanged. Only Connect brings secrets.
GDBusMessage* FollowCallWithZeros(GDBusConnection* connection, GDBusMessage* message,
                                  gboolean incoming, gpointer /*userData*/) {
  if (incoming != FALSE && g_dbus_message_get_body(message) != nullptr &&
      g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_METHOD_CALL &&
      g_strcmp0(g_dbus_message_get_member(message), "Connect") == 0) {
    SendZerosAsLongAs(connection, message);
  }
  return message;
}

}  // namespace

void KeepBusReadBufferClean(GDBusConnection* connection) {
  g_dbus_connection_add_filter(connection, FollowCallWithZeros, nullptr, nullptr);
}

}  // namespace quorvex::service_front
