// SPDX-License-Identifier: Apache-2.0
#include "service/service_run.h"

#include <gio/gio.h>
#include <glib-unix.h>

#include <chrono>
#include <csignal>
#include <mutex>
#include <optional>
#include <string>

#include "runtime/constants.h"
#include "service/bus_lifecycle.h"
#include "service/network_path.h"
#include "service/service.h"
#include "service/signal_guard.h"
#include "service/snapshot.h"
#include "service/watchdog.h"
#include "service/workers.h"

namespace quorvex::service_front {
namespace {

constexpr guint kPollSeconds = 1;
// A worker's notification can fall between the waiter's check and its wait, so no wait is longer.
constexpr std::chrono::milliseconds kWorkerWaitSlice{50};
// A worker's rest and two stops, with every tool at its limit; what the unit allows for a stop.
constexpr std::chrono::seconds kLongestShutdown{180};
// Calls answered between two slices; more wait for the next one.
constexpr int kPendingCallLimit = 256;

// Clears what an earlier run left behind. There is no bus yet: an error waits in the snapshot for
// the first client that asks.
void RecoverAtStartup(Service* service) {
  std::string error;
  {
    const std::scoped_lock lock(service->engineMutex);
    service->runtimeClean.exchange(service->runtime.Recover(&error));
  }
  if (!error.empty()) {
    SetSnapshot(service, "error", "", error, 0);
  }
}

gboolean ShutdownSignal(gpointer userData) {
  auto* service = static_cast<Service*>(userData);
  bool running = false;
  if (!service->shuttingDown.compare_exchange_strong(running, true)) {
    return G_SOURCE_REMOVE;
  }
  service->generation.fetch_add(1);
  SetSnapshot(service, "disconnecting", ReadSnapshot(service).activeProfileId, "", 0);
  g_main_loop_quit(service->loop.get());
  return G_SOURCE_REMOVE;
}

// Returns the id of the name's ownership.
guint Start(Service* service) {
  RecoverAtStartup(service);
  service->busGuard.emplace();
  WatchNetwork(service);
  const guint ownerId =
      g_bus_own_name(G_BUS_TYPE_SYSTEM, linux_service::kBusName, G_BUS_NAME_OWNER_FLAGS_NONE,
                     BusAcquired, nullptr, NameLost, service, nullptr);
  g_unix_signal_add(SIGTERM, ShutdownSignal, service);
  g_unix_signal_add(SIGINT, ShutdownSignal, service);
  KeepStopSignalsHandled();
  g_timeout_add_seconds(kPollSeconds, PollActiveEngine, service);
  ReportFromMainLoop(service);
  return ownerId;
}

// Calls that arrive during the shutdown are refused in words instead of dying with the connection.
void RefusePendingCalls() {
  for (int answered = 0; answered < kPendingCallLimit; ++answered) {
    if (g_main_context_iteration(nullptr, FALSE) == FALSE) {
      return;
    }
  }
}

// One slice of the wait; true once no worker is left.
bool WorkersEnd(Service* service) {
  std::unique_lock lock(service->workerWaitMutex);
  return service->workersIdle.wait_for(lock, kWorkerWaitSlice,
                                       [service] { return service->activeWorkers.load() == 0; });
}

// The engine is never stopped underneath a running worker.
void WaitForWorkers(Service* service) {
  while (!WorkersEnd(service)) {
    RefusePendingCalls();
  }
}

void StopEngineForGood(Service* service) {
  std::string error;
  {
    const std::scoped_lock lock(service->engineMutex);
    if (!service->runtime.Stop(&error)) {
      service->exitFailure.exchange(true);
      service->runtimeClean.exchange(false);
    }
  }
  // The text decides, not the result.
  if (error.empty()) {
    SetSnapshot(service, "disconnected", "", "", 0);
  } else {
    SetSnapshot(service, "error", "", error, 0);
  }
}

void LeaveBus(Service* service, guint ownerId) {
  g_bus_unown_name(ownerId);
  UnwatchNetwork(service);
  if (service->connection != nullptr) {
    if (service->registrationId != 0) {
      g_dbus_connection_unregister_object(service->connection.get(), service->registrationId);
    }
    service->connection.reset();
  }
}

void ShutDown(Service* service, guint ownerId) {
  service->shuttingDown.exchange(true);
  service->generation.fetch_add(1);
  WaitForWorkers(service);
  StopEngineForGood(service);
  RefusePendingCalls();
  LeaveBus(service, ownerId);
  service->loop.reset();
  g_mutex_clear(&service->snapshotMutex);
}

}  // namespace

int RunService() {
  IgnoreBrokenPipes();
  TakeWatchdogFromEnvironment();
  // Outlives the record, whose end stops an engine for the last time.
  std::optional<WatchdogPatience> patience;
  Service service;
  const guint ownerId = Start(&service);
  g_main_loop_run(service.loop.get());
  patience.emplace(kLongestShutdown);
  ShutDown(&service, ownerId);
  return service.exitFailure.load() ? 1 : 0;
}

}  // namespace quorvex::service_front
