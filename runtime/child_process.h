// SPDX-License-Identifier: Apache-2.0
//
// Watches the long-lived children of the process engines.
#pragma once

#include <gio/gio.h>

#include <chrono>

namespace quorvex::linux_service {

// Whether the child still runs: it has not been reaped and is neither a zombie nor dead. A stopped
// child counts as alive. Reads /proc; any thread.
[[nodiscard]] bool ProcessIsAlive(GSubprocess* process);

// Waits for the child's end for at most `timeout` on the monotonic clock, blocking the calling
// thread. True when it ended in time. Never kills the child; what to do next is the caller's
// choice.
[[nodiscard]] bool WaitForProcess(GSubprocess* process, std::chrono::milliseconds timeout);

}  // namespace quorvex::linux_service
