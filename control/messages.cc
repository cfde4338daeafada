// SPDX-License-Identifier: Apache-2.0
#include "control/messages.h"

namespace quorvex::control {
namespace {

std::int64_t NumberIn(GVariant* dictionary, const char* key) {
  gint64 value = 0;
  g_variant_lookup(dictionary, key, "x", &value);
  return value;
}

}  // namespace

std::string TextIn(GVariant* dictionary, const char* key) {
  const char* text = "";
  g_variant_lookup(dictionary, key, "&s", &text);
  return text;
}

bool FlagIn(GVariant* dictionary, const char* key) {
  gboolean flag = FALSE;
  g_variant_lookup(dictionary, key, "b", &flag);
  return flag != FALSE;
}

Snapshot ReadSnapshot(GVariant* dictionary) {
  return {TextIn(dictionary, "stage"), TextIn(dictionary, "activeProfileId"),
          TextIn(dictionary, "lastError"), NumberIn(dictionary, "connectedAtEpochMillis")};
}

LogEntry ReadLogEntry(GVariant* dictionary) {
  return {TextIn(dictionary, "level"), TextIn(dictionary, "message"),
          NumberIn(dictionary, "timestamp")};
}

NetworkPath ReadNetworkPath(GVariant* dictionary) {
  return {FlagIn(dictionary, "isReachable"), NumberIn(dictionary, "timestampEpochMillis")};
}

}  // namespace quorvex::control
