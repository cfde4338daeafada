// SPDX-License-Identifier: Apache-2.0
#include "service/bus_guard.h"

#include <fcntl.h>
#include <gio/gunixsocketaddress.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <string_view>

#include "runtime/constants.h"
#include "runtime/secure_clear.h"

namespace quorvex::service_front {
namespace {

using linux_service::kBusSocket;
using linux_service::kGroundDirectory;

constexpr mode_t kFolderMode = 0700;
constexpr char kAddressVariable[] = "DBUS_SYSTEM_BUS_ADDRESS";
constexpr std::string_view kLineEnd = "\r\n";
// What GDBus asks for on a local socket, and the answer of a server that does not pass descriptors.
constexpr std::string_view kPassDescriptors = "NEGOTIATE_UNIX_FD\r\n";
constexpr std::string_view kRefusal = "ERROR\r\n";
constexpr std::string_view kBegin = "BEGIN\r\n";
// Enough of a message to tell its length.
constexpr gsize kFixedHeader = 16;
constexpr gsize kChunk = 16384;

// Reads up to `size` bytes; 0 at the end, or when the guard has ended.
gsize Receive(GSocket* socket, char* bytes, gsize size, GCancellable* end) {
  const gssize count = g_socket_receive(socket, bytes, size, end, nullptr);
  return count > 0 ? static_cast<gsize>(count) : 0;
}

// Fills `text` from `filled` on.
bool ReceiveRest(GSocket* socket, std::string* text, gsize filled, GCancellable* end) {
  while (filled < text->size()) {
    const gsize count = Receive(socket, text->data() + filled, text->size() - filled, end);
    if (count == 0) {
      return false;
    }
    filled += count;
  }
  return true;
}

bool Send(GSocket* socket, std::string_view bytes, GCancellable* end) {
  while (!bytes.empty()) {
    const gssize count = g_socket_send(socket, bytes.data(), bytes.size(), end, nullptr);
    if (count <= 0) {
      return false;
    }
    bytes.remove_prefix(static_cast<gsize>(count));
  }
  return true;
}

// The other side reads an end, too.
void Close(GSocket* socket) {
  static_cast<void>(g_socket_shutdown(socket, TRUE, TRUE, nullptr));
}

GObjectPtr<GSocket> ConnectToBus() {
  const GCharPtr address(g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
  if (address == nullptr) {
    return nullptr;
  }
  const GObjectPtr<GIOStream> stream(
      g_dbus_address_get_stream_sync(address.get(), nullptr, nullptr, nullptr));
  if (stream == nullptr || !G_IS_SOCKET_CONNECTION(stream.get())) {
    return nullptr;
  }
  // A socket of its own: the stream closes the one that it was made with.
  GSocket* theirs =
      g_socket_connection_get_socket(reinterpret_cast<GSocketConnection*>(stream.get()));
  const int duplicate = fcntl(g_socket_get_fd(theirs), F_DUPFD_CLOEXEC, 0);
  return GObjectPtr<GSocket>(duplicate < 0 ? nullptr : g_socket_new_from_fd(duplicate, nullptr));
}

// In a folder that only root may enter: nobody else can get in our way.
GObjectPtr<GSocket> Listen() {
  GObjectPtr<GSocket> socket(
      g_socket_new(G_SOCKET_FAMILY_UNIX, G_SOCKET_TYPE_STREAM, G_SOCKET_PROTOCOL_DEFAULT, nullptr));
  const GObjectPtr<GSocketAddress> address(g_unix_socket_address_new(kBusSocket));
  // What an earlier run left there is in the way.
  static_cast<void>(unlink(kBusSocket));
  if (socket == nullptr || g_socket_bind(socket.get(), address.get(), FALSE, nullptr) == FALSE ||
      g_socket_listen(socket.get(), nullptr) == FALSE) {
    return nullptr;
  }
  return socket;
}

bool IsOurselves(GSocket* peer) {
  const GObjectPtr<GCredentials> credentials(g_socket_get_credentials(peer, nullptr));
  return credentials != nullptr &&
         g_credentials_get_unix_pid(credentials.get(), nullptr) == getpid();
}

GObjectPtr<GSocket> AcceptOurselves(GSocket* listener, GCancellable* end) {
  while (true) {
    GObjectPtr<GSocket> peer(g_socket_accept(listener, end, nullptr));
    if (peer == nullptr || IsOurselves(peer.get())) {
      return peer;
    }
  }
}

bool IsReadable(std::string* message) {
  GErrorSlot error;
  const GObjectPtr<GDBusMessage> read(
      g_dbus_message_new_from_blob(reinterpret_cast<guchar*>(message->data()), message->size(),
                                   G_DBUS_CAPABILITY_FLAGS_NONE, error.Out()));
  return read != nullptr;
}

// Only the first time: whoever can send such messages could fill the journal with them.
void TellOfDroppedMessage() {
  static std::atomic<bool> told{false};
  if (!told.exchange(true)) {
    g_log(nullptr, G_LOG_LEVEL_WARNING,
          "A bus message that cannot be read was dropped. Further ones are dropped silently.");
  }
}

// Takes the first whole line off the text; empty when there is none yet.
std::string TakeLine(std::string* text) {
  const std::size_t lineEnd = text->find(kLineEnd);
  if (lineEnd == std::string::npos) {
    return {};
  }
  std::string line = text->substr(0, lineEnd + kLineEnd.size());
  text->erase(0, line.size());
  return line;
}

// Carries one message, of which `begin` has been read already. False at the end.
bool CarryMessage(const std::string& begin, GSocket* client, GSocket* bus, GCancellable* end) {
  std::string message = begin;
  message.resize(std::max(begin.size(), kFixedHeader));
  if (!ReceiveRest(bus, &message, begin.size(), end)) {
    return false;
  }
  const gssize needed = g_dbus_message_bytes_needed(reinterpret_cast<guchar*>(message.data()),
                                                    message.size(), nullptr);
  const gsize filled = message.size();
  // Where no message begins, nothing can be told any more: GDBus shall see for itself.
  const bool isMessage = needed > 0;
  message.resize(isMessage ? static_cast<gsize>(needed) : filled);
  bool carried = ReceiveRest(bus, &message, std::min(filled, message.size()), end);
  if (carried && isMessage && !IsReadable(&message)) {
    TellOfDroppedMessage();
  } else if (carried) {
    carried = Send(client, message, end);
  }
  linux_service::SecureClear(&message);
  return carried;
}

}  // namespace

BusGuard::BusGuard() {
  const GObjectPtr<GSocket> bus = ConnectToBus();
  if (bus == nullptr) {
    return;
  }
  // A folder that cannot be made or closed to others shows at once: nothing can listen in it, or
  // strangers are turned away.
  static_cast<void>(mkdir(kGroundDirectory, kFolderMode));
  static_cast<void>(chmod(kGroundDirectory, kFolderMode));
  if (const GObjectPtr<GSocket> listener = Listen(); listener != nullptr) {
    relay = std::thread([this, listener = g_object_ref(listener.get()),
                         socket = g_object_ref(bus.get())] { Relay(listener, socket); });
    ConnectThroughRelay();
    static_cast<void>(unlink(kBusSocket));
  }
  // It stays where systemd made it for us, or a record lies in it. Who else made it does not
  // matter: an earlier run may have been killed just above.
  static_cast<void>(rmdir(kGroundDirectory));
  if (connection != nullptr) {
    g_dbus_connection_set_exit_on_close(connection.get(), FALSE);
  } else {
    g_log(nullptr, G_LOG_LEVEL_WARNING,
          "Messages from the bus are not guarded: no connection through the relay.");
  }
}

// GDBus learns where the bus is from the environment, as the tools do that the service runs; these
// speak to the bus directly.
void BusGuard::ConnectThroughRelay() {
  const GCharPtr former(g_strdup(g_getenv(kAddressVariable)));
  g_setenv(kAddressVariable, (std::string("unix:path=") + kBusSocket).c_str(), TRUE);
  connection.reset(g_bus_get_sync(G_BUS_TYPE_SYSTEM, end.get(), nullptr));
  if (former == nullptr) {
    g_unsetenv(kAddressVariable);
  } else {
    g_setenv(kAddressVariable, former.get(), TRUE);
  }
}

BusGuard::~BusGuard() {
  connection.reset();
  g_cancellable_cancel(end.get());
  if (relay.joinable()) {
    relay.join();
  }
}

void BusGuard::Relay(GSocket* listener, GSocket* bus) {
  GObjectPtr<GSocket> door(listener);
  const GObjectPtr<GSocket> away(bus);
  const GObjectPtr<GSocket> client = AcceptOurselves(listener, end.get());
  door.reset();
  if (client == nullptr) {
    return;
  }
  std::thread toBus([this, &client, bus] { CarryToBus(client.get(), bus); });
  CarryFromBus(client.get(), bus);
  Close(client.get());
  Close(bus);
  toBus.join();
}

void BusGuard::CarryToBus(GSocket* client, GSocket* bus) {
  std::string text;
  std::array<char, kChunk> chunk;
  bool carried = true;
  while (carried && !begun.load()) {
    const gsize count = Receive(client, chunk.data(), chunk.size(), end.get());
    text.append(chunk.data(), count);
    carried = count > 0 && CarryLines(&text, client, bus);
  }
  carried = carried && Send(bus, text, end.get());
  while (carried) {
    const gsize count = Receive(client, chunk.data(), chunk.size(), end.get());
    carried = count > 0 && Send(bus, {chunk.data(), count}, end.get());
    // Replies may hold a new private key.
    explicit_bzero(chunk.data(), count);
  }
  Close(bus);
}

// The whole lines at the beginning of the text, up to the last one of the handshake.
bool BusGuard::CarryLines(std::string* text, GSocket* client, GSocket* bus) {
  bool carried = true;
  while (carried && !begun.load()) {
    const std::string line = TakeLine(text);
    if (line.empty()) {
      return true;
    }
    // Set before the line is sent: the first message may follow at once.
    begun = line == kBegin;
    carried =
        line == kPassDescriptors ? Send(client, kRefusal, end.get()) : Send(bus, line, end.get());
  }
  return carried;
}

void BusGuard::CarryFromBus(GSocket* client, GSocket* bus) {
  std::string text;
  while (true) {
    text.resize(kFixedHeader);
    text.resize(Receive(bus, text.data(), text.size(), end.get()));
    if (text.empty() || begun.load()) {
      break;
    }
    if (!Send(client, text, end.get())) {
      return;
    }
  }
  bool carried = !text.empty() && CarryMessage(text, client, bus, end.get());
  while (carried) {
    carried = CarryMessage({}, client, bus, end.get());
  }
}

}  // namespace quorvex::service_front
