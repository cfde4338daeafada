// SPDX-License-Identifier: Apache-2.0
//
// Runs external tools to their end, each under coreutils' `timeout`, so that no tool can hang the
// service. The functions keep no state, block the calling thread until the child has ended and
// may be called from any thread.
#pragma once

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "runtime/constants.h"

namespace quorvex::linux_service {

// Program path first; the strings outlive the call; no terminating null.
using ArgumentVector = std::vector<const char*>;
// Names and values; a listed variable replaces an inherited one, all others are inherited.
using EnvironmentList = std::vector<std::pair<std::string, std::string>>;

// What a command that is run for its exit status is put behind. An earlier run's commands are known
// by it.
inline constexpr std::array<const char*, 4> kStatusPrefix = {kTimeoutBinary, "--signal=TERM",
                                                             "--kill-after=3s", "12s"};

// Runs a command for its exit status: 12 s, then SIGTERM, then SIGKILL 3 s later. The tool's
// output is discarded. On failure `error` (not null) is one sentence: that `timeout` is missing,
// that the operation timed out, or GLib's own words about start, exit status or signal.
[[nodiscard]] bool RunCommand(const ArgumentVector& argv, std::string* error);

// The same with extra environment variables.
[[nodiscard]] bool RunCommandWithEnvironment(const ArgumentVector& argv,
                                             const EnvironmentList& environment,
                                             std::string* error);

// Runs a query and collects its standard output: 3 s, then SIGTERM, then SIGKILL 1 s later.
// `output` (not null) is replaced only when the command exits with status 0 and wrote UTF-8.
[[nodiscard]] bool CaptureCommand(const ArgumentVector& argv, std::string* output);

// The text without leading and trailing white space (as std::isspace sees it).
[[nodiscard]] std::string TrimWhitespace(const std::string& text);

}  // namespace quorvex::linux_service
