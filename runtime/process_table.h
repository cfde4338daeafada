// SPDX-License-Identifier: Apache-2.0
//
// Processes that are not this one's children, seen through /proc and held by pidfds, so that a
// number which has meanwhile gone to another process can do no harm.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "runtime/file_descriptor.h"

namespace quorvex::linux_service {

struct RunningProcess {
  pid_t pid = 0;
  pid_t parent = 0;
  // The process group; its number is that of the process which began it.
  pid_t group = 0;
  // The program's file as the kernel names it; empty when this process may not know.
  std::string program;
  std::vector<std::string> arguments;
  FileDescriptor handle;
};

// The processes of this one's user in this one's network namespace, other than itself and its
// children, for which `wanted` says yes. What may not be looked at is left out.
[[nodiscard]] std::vector<RunningProcess> FindProcesses(
    const std::function<bool(const RunningProcess&)>& wanted);

// Whether the process runs the program at `path`, or ran it before an upgrade replaced the file.
[[nodiscard]] bool RunsProgram(const RunningProcess& process, const char* path);

// Whether one of the process's arguments is exactly `argument`.
[[nodiscard]] bool HasArgument(const RunningProcess& process, const std::string& argument);

// Whether the process with this number (null or empty: none) has the file at `path` open. False as
// well when that may not be known.
[[nodiscard]] bool HoldsFile(const char* pid, const std::string& path);

// Waits for the end of all processes for at most `patience`; whether all have ended.
[[nodiscard]] bool AwaitEnd(const std::vector<RunningProcess>& processes,
                            std::chrono::milliseconds patience);

// SIGTERM to all, SIGKILL to those that have not ended after `patience`, and a wait for these as
// long again. Blocks the calling thread; true once all have ended.
[[nodiscard]] bool EndProcesses(const std::vector<RunningProcess>& processes,
                                std::chrono::milliseconds patience);

}  // namespace quorvex::linux_service
