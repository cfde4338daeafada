// SPDX-License-Identifier: Apache-2.0
#include "service/snapshot.h"

#include "runtime/constants.h"
#include "service/dictionary_builder.h"
#include "service/service.h"
#include "service/snapshot_lock.h"

namespace quorvex::service_front {

void SetSnapshot(Service* service, const std::string& stage, const std::string& activeProfileId,
                 const std::string& lastError, std::int64_t connectedAtEpochMillis) {
  {
    const SnapshotLock lock(&service->snapshotMutex);
    service->snapshot.stage = stage;
    service->snapshot.activeProfileId = activeProfileId;
    service->snapshot.lastError = lastError;
    service->snapshot.connectedAtEpochMillis = connectedAtEpochMillis;
  }
  // Reads the snapshot again: if another thread stored a newer one meanwhile, that one goes out.
  const GVariantPtr value = SnapshotVariant(service);
  EmitDictionarySignal(service->connection.get(), "SnapshotChanged", value.get());
}

Snapshot ReadSnapshot(Service* service) {
  Snapshot copy;
  const SnapshotLock lock(&service->snapshotMutex);
  copy = service->snapshot;
  return copy;
}

GVariantPtr SnapshotVariant(Service* service) {
  const Snapshot snapshot = ReadSnapshot(service);
  DictionaryBuilder dictionary;
  dictionary.AddString("stage", snapshot.stage.c_str());
  if (!snapshot.activeProfileId.empty()) {
    dictionary.AddString("activeProfileId", snapshot.activeProfileId.c_str());
  }
  if (!snapshot.lastError.empty()) {
    dictionary.AddString("lastError", snapshot.lastError.c_str());
  }
  if (snapshot.connectedAtEpochMillis > 0) {
    dictionary.AddInt64("connectedAtEpochMillis", snapshot.connectedAtEpochMillis);
  }
  return dictionary.End();
}

void EmitDictionarySignal(GDBusConnection* connection, const char* signalName, GVariant* value) {
  if (connection == nullptr) {
    return;
  }
  GErrorSlot error;
  if (g_dbus_connection_emit_signal(connection, nullptr, linux_service::kObjectPath,
                                    linux_service::kInterfaceName, signalName,
                                    g_variant_new("(@a{sv})", value), error.Out()) == FALSE) {
    g_log(nullptr, G_LOG_LEVEL_WARNING, "Unable to emit %s: %s", signalName,
          error.MessageOr("unknown error"));
  }
}

void EmitLog(Service* service, const char* level, const std::string& message) {
  DictionaryBuilder entry;
  entry.AddString("level", level);
  entry.AddString("message", message.c_str());
  entry.AddInt64("timestamp", NowEpochMillis());
  const GVariantPtr value = entry.End();
  EmitDictionarySignal(service->connection.get(), "LogEmitted", value.get());
  g_log(nullptr, G_LOG_LEVEL_MESSAGE, "%s", message.c_str());
}

std::int64_t NowEpochMillis() {
  constexpr std::int64_t kMicrosPerMilli = 1000;
  return g_get_real_time() / kMicrosPerMilli;
}

}  // namespace quorvex::service_front
