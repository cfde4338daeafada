// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/service/peer_bus.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <array>
#include <mutex>

#include "runtime/constants.h"

namespace quorvex::test {
namespace {

// Guards what the filter writes on GDBus's own thread. Not a member: ThreadSanitizer does not see
// how GLib hands a new object to that thread, but it sees both sides take this lock.
std::mutex filterMutex;

GObjectPtr<GIOStream> StreamOf(int descriptor) {
  GErrorSlot error;
  const GObjectPtr<GSocket> socket(g_socket_new_from_fd(descriptor, error.Out()));
  EXPECT_NE(socket, nullptr) << error.MessageOr("");
  return GObjectPtr<GIOStream>(
      G_IO_STREAM(g_socket_connection_factory_create_connection(socket.get())));
}

// A pending GLib operation; the default context runs until its result is there.
class Pending {
 public:
  static void Done(GObject* /*source*/, GAsyncResult* result, gpointer self) {
    static_cast<Pending*>(self)->result.reset(static_cast<GAsyncResult*>(g_object_ref(result)));
  }
  GAsyncResult* Await() {
    while (result == nullptr) {
      g_main_context_iteration(nullptr, TRUE);
    }
    return result.get();
  }

 private:
  GObjectPtr<GAsyncResult> result;
};

GObjectPtr<GDBusConnection> Finish(Pending* pending) {
  GErrorSlot error;
  GObjectPtr<GDBusConnection> connection(
      g_dbus_connection_new_finish(pending->Await(), error.Out()));
  EXPECT_NE(connection, nullptr) << error.MessageOr("");
  return connection;
}

std::string Print(GVariant* value) {
  return value != nullptr ? GCharPtr(g_variant_print(value, TRUE)).get() : "()";
}

// The text of an error's only argument.
std::string ErrorText(GVariant* body) {
  const char* text = "";
  if (body != nullptr && g_variant_is_of_type(body, G_VARIANT_TYPE("(s)"))) {
    g_variant_get(body, "(&s)", &text);
  }
  return text;
}

const char* OrNone(const char* header) {
  return header != nullptr ? header : "none";
}

Message Describe(GDBusMessage* message) {
  GVariant* body = g_dbus_message_get_body(message);
  switch (g_dbus_message_get_message_type(message)) {
    case G_DBUS_MESSAGE_TYPE_ERROR:
      return {g_dbus_message_get_error_name(message), ErrorText(body)};
    case G_DBUS_MESSAGE_TYPE_SIGNAL:
      return {g_dbus_message_get_member(message), Print(body)};
    default:
      return {"", Print(body)};
  }
}

}  // namespace

PeerBus::PeerBus() {
  std::array<int, 2> ends{};
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
  const GObjectPtr<GIOStream> serviceStream = StreamOf(ends[0]);
  const GObjectPtr<GIOStream> clientStream = StreamOf(ends[1]);
  const GCharPtr guid(g_dbus_generate_guid());
  Pending servicePending;
  Pending clientPending;
  g_dbus_connection_new(serviceStream.get(), guid.get(),
                        G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_SERVER, nullptr, nullptr,
                        Pending::Done, &servicePending);
  g_dbus_connection_new(clientStream.get(), nullptr, G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT,
                        nullptr, nullptr, Pending::Done, &clientPending);
  service = Finish(&servicePending);
  client = Finish(&clientPending);
  const std::scoped_lock lock(filterMutex);
  g_dbus_connection_add_filter(client.get(), Filter, this, nullptr);
}

PeerBus::~PeerBus() {
  // GDBus's thread itself closes the connection, so the filter does not run afterwards.
  g_dbus_connection_close_sync(client.get(), nullptr, nullptr);
  g_dbus_connection_close_sync(service.get(), nullptr, nullptr);
  const std::scoped_lock lastFilterIsOver(filterMutex);
}

GDBusMessage* PeerBus::Filter(GDBusConnection* /*connection*/, GDBusMessage* message,
                              gboolean incoming, gpointer self) {
  if (incoming != FALSE) {
    static_cast<PeerBus*>(self)->Note(message);
  }
  return message;
}

void PeerBus::Note(GDBusMessage* message) {
  const std::scoped_lock lock(filterMutex);
  received.push_back(Describe(message));
  if (g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_SIGNAL) {
    lastSignalHeaders = {OrNone(g_dbus_message_get_path(message)),
                         OrNone(g_dbus_message_get_interface(message)),
                         OrNone(g_dbus_message_get_destination(message))};
  }
}

Message PeerBus::Call(const char* method, GVariant* parameters, const char* sender) {
  const GObjectPtr<GDBusMessage> call(g_dbus_message_new_method_call(
      nullptr, linux_service::kObjectPath, linux_service::kInterfaceName, method));
  if (parameters != nullptr) {
    g_dbus_message_set_body(call.get(), parameters);
  }
  g_dbus_message_set_sender(call.get(), sender);
  Pending pending;
  g_dbus_connection_send_message_with_reply(client.get(), call.get(),
                                            G_DBUS_SEND_MESSAGE_FLAGS_NONE, -1, nullptr, nullptr,
                                            Pending::Done, &pending);
  GErrorSlot error;
  const GObjectPtr<GDBusMessage> reply(
      g_dbus_connection_send_message_with_reply_finish(client.get(), pending.Await(), error.Out()));
  EXPECT_NE(reply, nullptr) << error.MessageOr("");
  return reply != nullptr ? Describe(reply.get()) : Message{};
}

std::vector<Message> PeerBus::Received() {
  // A call travels behind whatever the service sent before; any answer will do.
  const Message fence = Call("Fence");
  const std::scoped_lock lock(filterMutex);
  std::vector<Message> messages = received;
  if (!messages.empty() && messages.back() == fence) {
    messages.pop_back();
  }
  return messages;
}

std::vector<std::string> PeerBus::LastSignalHeaders() {
  const std::scoped_lock lock(filterMutex);
  return lastSignalHeaders;
}

}  // namespace quorvex::test
