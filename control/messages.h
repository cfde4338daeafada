// SPDX-License-Identifier: Apache-2.0
//
// The service's dictionaries as records.
#pragma once

#include <glib.h>

#include <cstdint>
#include <string>

namespace quorvex::control {

struct Snapshot {
  std::string stage;
  // Empty when the service says none.
  std::string profile;
  std::string lastError;
  // Milliseconds since the epoch; 0 when not connected.
  std::int64_t connectedAt = 0;
};

struct LogEntry {
  std::string level;
  std::string message;
  std::int64_t timestamp = 0;
};

struct NetworkPath {
  bool reachable = false;
  std::int64_t timestamp = 0;
};

// All take a dictionary "a{sv}"; what is missing in it, or of another type, stays as above.
[[nodiscard]] Snapshot ReadSnapshot(GVariant* dictionary);
[[nodiscard]] LogEntry ReadLogEntry(GVariant* dictionary);
[[nodiscard]] NetworkPath ReadNetworkPath(GVariant* dictionary);

// A string and a boolean of a dictionary; empty and false when there is none of the name.
[[nodiscard]] std::string TextIn(GVariant* dictionary, const char* key);
[[nodiscard]] bool FlagIn(GVariant* dictionary, const char* key);

}  // namespace quorvex::control
