// SPDX-License-Identifier: Apache-2.0
#include "runtime/child_process.h"

#include <array>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "runtime/glib_ptr.h"

namespace quorvex::linux_service {
namespace {

using FilePtr = std::unique_ptr<FILE, ReleaseWith<fclose>>;

// What the calling thread and its watchdog share; lives on the caller's stack.
struct WatchdogState {
  GObjectPtr<GCancellable> cancellable{g_cancellable_new()};
  std::chrono::milliseconds timeout;
  std::mutex mutex;
  std::condition_variable condition;
  bool finished = false;
};

void CancelAtDeadline(WatchdogState* state) {
  std::unique_lock lock(state->mutex);
  const auto deadline = std::chrono::steady_clock::now() + state->timeout;
  const bool finished =
      state->condition.wait_until(lock, deadline, [state] { return state->finished; });
  if (!finished) {
    g_cancellable_cancel(state->cancellable.get());
  }
}

void Finish(WatchdogState* state) {
  {
    const std::scoped_lock lock(state->mutex);
    state->finished = true;
  }
  state->condition.notify_one();
}

}  // namespace

bool ProcessIsAlive(GSubprocess* process) {
  const char* identifier = g_subprocess_get_identifier(process);
  if (identifier == nullptr || *identifier == '\0') {
    return false;
  }
  const std::string path = std::string("/proc/") + identifier + "/stat";
  const FilePtr file(std::fopen(path.c_str(), "re"));
  if (file == nullptr) {
    return false;
  }
  int pid = 0;
  std::array<char, 256> name{};
  char state = '\0';
  const int fields = std::fscanf(file.get(), "%d %255s %c", &pid, name.data(), &state);
  return fields == 3 && state != 'Z' && state != 'X';
}

bool WaitForProcess(GSubprocess* process, std::chrono::milliseconds timeout) {
  WatchdogState state{.timeout = timeout, .mutex = {}, .condition = {}};
  std::thread watchdog(CancelAtDeadline, &state);
  GErrorSlot error;
  const bool ended = g_subprocess_wait(process, state.cancellable.get(), error.Out()) != FALSE;
  Finish(&state);
  watchdog.join();
  return ended;
}

}  // namespace quorvex::linux_service
