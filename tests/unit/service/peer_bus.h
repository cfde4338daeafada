// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gio/gio.h>

#include <string>
#include <vector>

#include "runtime/glib_ptr.h"

namespace quorvex::test {

// What arrived at the client, a signal or a reply.
struct Message {
  // A signal's or an error's name; empty for a reply without error.
  std::string name;
  // The arguments as GLib prints them, with types; an error's is its message.
  std::string text;
  bool operator==(const Message&) const = default;
};

// Two ends of a real D-Bus connection without a bus between them. Messages therefore carry no
// sender unless the client gives one itself. Everything runs on the default main context.
class PeerBus {
 public:
  PeerBus();
  PeerBus(const PeerBus&) = delete;
  PeerBus& operator=(const PeerBus&) = delete;
  ~PeerBus();

  // The end of the service; null when the connection could not be made.
  [[nodiscard]] GDBusConnection* Service() const { return service.get(); }

  // Calls a method of the service's interface and waits for the reply. `parameters` may be null or
  // floating, `sender` null.
  [[nodiscard]] Message Call(const char* method, GVariant* parameters = nullptr,
                             const char* sender = nullptr);

  // Everything that has arrived in its order, each reply behind the signals before it. What the
  // service has sent until now is waited for.
  [[nodiscard]] std::vector<Message> Received();

  // The headers of the last signal: path, interface and destination ("none" if it has none).
  [[nodiscard]] std::vector<std::string> LastSignalHeaders();

 private:
  static GDBusMessage* Filter(GDBusConnection* connection, GDBusMessage* message, gboolean incoming,
                              gpointer self);
  void Note(GDBusMessage* message);

  GObjectPtr<GDBusConnection> service;
  GObjectPtr<GDBusConnection> client;
  // Both are written on GDBus's own thread, under a lock.
  std::vector<Message> received;
  std::vector<std::string> lastSignalHeaders;
};

}  // namespace quorvex::test
