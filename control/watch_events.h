// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "control/messages.h"

namespace quorvex::control {

// One line of `watch`.
struct WatchEvent {
  // Milliseconds since the epoch.
  std::int64_t time = 0;
  // "stage", "log", "network" or "service".
  std::string kind;
  // The stage, the entry's level, "reachable" or "unreachable", "running" or "gone".
  std::string word;
  // The profile's id of a stage.
  std::string profile;
  // The entry's message, or a stage's error.
  std::string message;
};

[[nodiscard]] WatchEvent StageEvent(const Snapshot& snapshot, std::int64_t now);
[[nodiscard]] WatchEvent LogEvent(const LogEntry& entry);
[[nodiscard]] WatchEvent NetworkEvent(const NetworkPath& path);
[[nodiscard]] WatchEvent ServiceEvent(bool running, std::int64_t now);

// Both without the line's end.
[[nodiscard]] std::string WatchText(const WatchEvent& event);
[[nodiscard]] std::string WatchJson(const WatchEvent& event);

}  // namespace quorvex::control
