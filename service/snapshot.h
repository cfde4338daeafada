// SPDX-License-Identifier: Apache-2.0
//
// The published state of the connection and the signals that carry it. Any thread may call these;
// the snapshot's lock is held only while its fields are copied, never while emitting.
#pragma once

#include <gio/gio.h>

#include <cstdint>
#include <string>

#include "runtime/glib_ptr.h"

namespace quorvex::service_front {

struct Service;

struct Snapshot {
  // "disconnected", "preparing", "connecting", "connected", "disconnecting" or "error".
  std::string stage = "disconnected";
  // The profile that the stage is about; empty when none.
  std::string activeProfileId;
  // The last failure's sentence; empty otherwise.
  std::string lastError;
  // Wall clock, milliseconds since the epoch; 0 unless connected.
  std::int64_t connectedAtEpochMillis = 0;
};

// Stores the snapshot and emits SnapshotChanged, even when nothing changed. Before the bus is
// acquired it only stores.
void SetSnapshot(Service* service, const std::string& stage, const std::string& activeProfileId,
                 const std::string& lastError, std::int64_t connectedAtEpochMillis);

// A copy taken under the lock.
[[nodiscard]] Snapshot ReadSnapshot(Service* service);

// The current snapshot as "a{sv}".
[[nodiscard]] GVariantPtr SnapshotVariant(Service* service);

// Emits LogEmitted and writes the message to the journal. `level` is "info", "warning" or "error";
// the journal's level does not follow it.
void EmitLog(Service* service, const char* level, const std::string& message);

// Broadcasts one of the service's signals with a dictionary as its argument. Without a connection
// nothing happens; a failure is only logged.
void EmitDictionarySignal(GDBusConnection* connection, const char* signalName, GVariant* value);

// Wall clock, milliseconds since the epoch.
[[nodiscard]] std::int64_t NowEpochMillis();

}  // namespace quorvex::service_front
