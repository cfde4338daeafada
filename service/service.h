// SPDX-License-Identifier: Apache-2.0
//
// The one record of the running service, which every bus callback, timer and worker receives.
#pragma once

#include <gio/gio.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>

#include "runtime/engine_runtime.h"
#include "runtime/glib_ptr.h"
#include "service/bus_guard.h"
#include "service/snapshot.h"

namespace quorvex::service_front {

// Lives on the stack of the thread that runs the service and outlives every worker. Locks are taken
// in the order engineMutex, snapshotMutex; workerWaitMutex is never held together with another.
// Flags and counters are sequentially consistent atomics that no lock protects.
struct Service {
  Service() { g_mutex_init(&snapshotMutex); }
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;
  // The GLib objects have been released by the shutdown before this runs.
  ~Service() = default;

  // Goes last, since all that is said on the bus goes through it.
  std::optional<BusGuard> busGuard;
  GMainLoopPtr loop{g_main_loop_new(nullptr, FALSE)};
  // The system bus, once acquired.
  GObjectPtr<GDBusConnection> connection;
  // 0: the object is not registered.
  guint registrationId = 0;
  // Null when GLib has no network monitor.
  GObjectPtr<GNetworkMonitor> networkMonitor;
  // 0: no handler.
  gulong networkChangedHandler = 0;
  // Guards `snapshot` alone.
  GMutex snapshotMutex;
  // Serialises every use of `runtime`; a worker holds it for its whole run.
  std::mutex engineMutex;
  linux_service::EngineRuntime runtime;
  Snapshot snapshot;
  // Every connect, disconnect and shutdown increments it, which cancels a connect in flight.
  std::atomic<std::uint64_t> generation{0};
  // Worker threads promised and not yet finished.
  std::atomic<std::int32_t> activeWorkers{0};
  // Worker threads that have finished, by which the watchdog sees that they do.
  std::atomic<std::uint64_t> finishedWorkers{0};
  // Held by the shutdown while it waits for activeWorkers to reach 0.
  std::mutex workerWaitMutex;
  std::condition_variable workersIdle;
  // A disconnect worker has been started and has not finished.
  std::atomic<bool> disconnectPending{false};
  // False: something of an engine may be left, a clean-up is required.
  std::atomic<bool> runtimeClean{true};
  std::atomic<bool> networkAvailable{false};
  // The process must exit with status 1.
  std::atomic<bool> exitFailure{false};
  // Every bus method is refused; never cleared once set.
  std::atomic<bool> shuttingDown{false};
};

}  // namespace quorvex::service_front
