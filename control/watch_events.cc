// SPDX-License-Identifier: Apache-2.0
#include "control/watch_events.h"

#include <algorithm>

#include "control/json_text.h"
#include "control/output.h"

namespace quorvex::control {
namespace {

std::string Padded(std::string text) {
  constexpr std::size_t kWidth = 9;
  text.resize(std::max(text.size(), kWidth), ' ');
  return text;
}

std::string Words(const WatchEvent& event) {
  std::string words = event.kind == "log" ? event.message : event.word;
  words += event.profile.empty() ? "" : " (" + event.profile + ")";
  return event.kind == "log" || event.message.empty() ? words : words + ": " + event.message;
}

}  // namespace

WatchEvent StageEvent(const Snapshot& snapshot, std::int64_t now) {
  return {now, "stage", snapshot.stage, snapshot.profile, snapshot.lastError};
}

WatchEvent LogEvent(const LogEntry& entry) {
  return {entry.timestamp, "log", entry.level, "", entry.message};
}

WatchEvent NetworkEvent(const NetworkPath& path) {
  return {path.timestamp, "network", path.reachable ? "reachable" : "unreachable", "", ""};
}

WatchEvent ServiceEvent(bool running, std::int64_t now) {
  return {now, "service", running ? "running" : "gone", "", ""};
}

// A log entry goes under its level, all else under its kind.
std::string WatchText(const WatchEvent& event) {
  const std::string& head = event.kind == "log" ? event.word : event.kind;
  return LocalTime(event.time, "%H:%M:%S") + "  " + Padded(head) + Printable(Words(event));
}

std::string WatchJson(const WatchEvent& event) {
  JsonText json;
  json.Integer("time", event.time).String("event", event.kind);
  if (event.kind == "log") {
    json.String("level", event.word).String("message", event.message);
  } else if (event.kind == "stage") {
    json.String("stage", event.word)
        .StringOrNull("profile", event.profile)
        .StringOrNull("lastError", event.message);
  } else if (event.kind == "network") {
    json.Boolean("reachable", event.word == "reachable");
  } else {
    json.Boolean("running", event.word == "running");
  }
  return json.End();
}

}  // namespace quorvex::control
