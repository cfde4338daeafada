// SPDX-License-Identifier: Apache-2.0
//
// Follows the service on the bus: its signals, its coming and going, and answers to calls, all on
// the main thread while Run is running.
#pragma once

#include <gio/gio.h>

#include <functional>
#include <optional>
#include <vector>

#include "control/bus.h"
#include "control/messages.h"
#include "runtime/glib_ptr.h"

namespace quorvex::control {

// What to do with what comes; each may be left out.
struct Handlers {
  std::function<void(const Snapshot&)> snapshot;
  std::function<void(const LogEntry&)> log;
  std::function<void(const NetworkPath&)> networkPath;
  // The service is on the bus, and its signals are subscribed to: nothing that it sends from now on
  // is missed.
  std::function<void()> appeared;
  // It is not, or no longer.
  std::function<void()> vanished;
  // SIGINT or SIGTERM; without a handler they end the process.
  std::function<void(int signalNumber)> interrupted;
};

class Conversation {
 public:
  // Whether the bus shall start the service if it does not run.
  enum class Start { kIfNeeded, kNever };
  // A reply, or what the call failed with.
  using Answer = std::function<void(GVariant* reply, const std::optional<Failure>& failure)>;

  Conversation(BusPtr bus, Start start, Handlers handlers);
  Conversation(const Conversation&) = delete;
  Conversation& operator=(const Conversation&) = delete;
  ~Conversation();

  // Calls a method of the service, with `parameters` taken over; `answer` runs later, unless the
  // conversation ends before.
  void Call(const char* method, GVariant* parameters, Answer answer);
  // Runs `act` once after `milliseconds`.
  void After(unsigned milliseconds, std::function<void()> act);
  // Runs `act` each second.
  void EverySecond(std::function<void()> act);

  void Run() { g_main_loop_run(loop.get()); }
  void Quit() { g_main_loop_quit(loop.get()); }
  // Whether the connection to the bus has been lost; nothing is heard any more then.
  [[nodiscard]] bool BusHasEnded() const { return busHasEnded; }

 private:
  static void OnAppeared(GDBusConnection* bus, const char* name, const char* owner, gpointer self);
  static void OnVanished(GDBusConnection* bus, const char* name, gpointer self);
  static void OnSignal(GDBusConnection* bus, const char* sender, const char* path,
                       const char* interface, const char* signal, GVariant* parameters,
                       gpointer self);
  void HearSignal(const char* signal, GVariant* dictionary) const;
  void Unsubscribe();
  // Runs `act` whenever the source is ready, until it returns false.
  void Attach(GSource* source, std::function<bool()> act);

  BusPtr bus;
  Handlers handlers;
  GMainLoopPtr loop;
  GObjectPtr<GCancellable> ended;
  std::vector<GSourcePtr> sources;
  bool busHasEnded = false;
  guint watchId = 0;
  guint subscriptionId = 0;
};

}  // namespace quorvex::control
