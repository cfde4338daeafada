// SPDX-License-Identifier: Apache-2.0
//
// The threads that carry out accepted calls of Connect and Disconnect, and the poll that notices an
// engine that died. Each worker holds the engine lock for its whole run and publishes every outcome
// as snapshots and log entries.
#pragma once

#include <glib.h>

#include <cstdint>
#include <string>

#include "runtime/engine_catalogue.h"

namespace quorvex::service_front {

struct Service;

struct ConnectRequest {
  Service* service = nullptr;
  // The service's generation after this connect's increment.
  std::uint64_t generation = 0;
  linux_service::EngineKind engine = linux_service::EngineKind::kUnsupported;
  std::string profileId;
  // As the client sent it.
  std::string protocol;
  // Secret: wiped before the worker ends.
  std::string rawConfig;
  bool killSwitch = false;
};

// Thread functions. ConnectWorker takes a ConnectRequest over, DisconnectWorker borrows the
// Service; the caller has raised activeWorkers before. Both return null.
gpointer ConnectWorker(gpointer request);
gpointer DisconnectWorker(gpointer service);

// Timer callback on the main thread, every second; keeps its source. Never blocks on the engine
// lock.
gboolean PollActiveEngine(gpointer service);

}  // namespace quorvex::service_front
