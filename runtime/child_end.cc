// SPDX-License-Identifier: Apache-2.0
#include "runtime/child_end.h"

#include <chrono>
#include <csignal>

#include "runtime/child_process.h"
#include "runtime/orphans.h"

namespace quorvex::linux_service {
namespace {

constexpr std::chrono::milliseconds kEndTimeout{8000};

}  // namespace

bool EndChild(GSubprocess* process) {
  if (ProcessIsAlive(process)) {
    g_subprocess_send_signal(process, SIGTERM);
  }
  if (WaitForProcess(process, kEndTimeout)) {
    return true;
  }
  g_subprocess_force_exit(process);
  // Nothing can cancel this wait, and SIGKILL leaves nothing to wait for in vain.
  static_cast<void>(g_subprocess_wait(process, nullptr, nullptr));
  EndOpenVpnHelpers();
  return false;
}

}  // namespace quorvex::linux_service
