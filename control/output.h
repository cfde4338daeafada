// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "control/failure.h"

namespace quorvex::control {

// From now on the main loop of the default context ends the process, with kExitFailure, when nobody
// reads standard output any more: without this only the next Print would notice.
void EndWithReader();

// To standard output, at once.
void Print(const std::string& text);
// To standard error.
void Complain(const std::string& line);

// A failure as it is shown: for people two lines at most on standard error, with `json` one object
// on standard output. Returns the exit code.
int Report(const Failure& failure, bool json);

// "quorvexvpnctl: ..." and its hint, each with its line's end.
[[nodiscard]] std::string FailureText(const Failure& failure);
// {"error": ..., "hint": ..., "exitCode": ...}
[[nodiscard]] std::string FailureJson(const Failure& failure);

// Local time of milliseconds since the epoch, in GLib's format; UTC in ISO 8601 for JSON.
[[nodiscard]] std::string LocalTime(std::int64_t epochMillis, const char* format);
[[nodiscard]] std::string IsoTime(std::int64_t epochMillis);

// "3 s", "4 min 3 s", "2 h 4 min", "3 d 2 h".
[[nodiscard]] std::string DurationText(std::int64_t seconds);

// A text of somebody else's, for a terminal: control characters become "?".
[[nodiscard]] std::string Printable(const std::string& text);

}  // namespace quorvex::control
