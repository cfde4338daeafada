// SPDX-License-Identifier: Apache-2.0
//
// GDBus ends its connection at the first message that it cannot read, and with the connection the
// service would end, tunnel, kill switch and all. The bus daemon passes some messages that GDBus
// cannot read (their types nest deeper), and any local user can send one. So the service speaks to
// the bus through a relay of its own, which drops them.
#pragma once

#include <gio/gio.h>

#include <atomic>
#include <string>
#include <thread>

#include "runtime/glib_ptr.h"

namespace quorvex::service_front {

// Makes this process's connection to the system bus, the one that g_bus_get and g_bus_own_name
// share, and holds it. What comes from the bus is read once for a trial; what cannot be read is
// dropped, without an answer. File descriptors are not passed, so the bus refuses to deliver
// messages with any. When the bus cannot be reached, there is no connection, and whoever asks GDBus
// for one finds that out.
//
// Made and destroyed on the main thread while no other thread of ours reads the environment; two
// threads of its own carry the bytes. At most one at a time.
class BusGuard {
 public:
  BusGuard();
  BusGuard(const BusGuard&) = delete;
  BusGuard& operator=(const BusGuard&) = delete;
  ~BusGuard();

 private:
  void ConnectThroughRelay();
  void Relay(GSocket* listener, GSocket* bus);
  void CarryToBus(GSocket* client, GSocket* bus);
  bool CarryLines(std::string* text, GSocket* client, GSocket* bus);
  void CarryFromBus(GSocket* client, GSocket* bus);

  GObjectPtr<GCancellable> end{g_cancellable_new()};
  // The handshake is over: what follows from the bus are messages.
  std::atomic<bool> begun{false};
  std::thread relay;
  GObjectPtr<GDBusConnection> connection;
};

}  // namespace quorvex::service_front
