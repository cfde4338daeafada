// SPDX-License-Identifier: Apache-2.0
#include "runtime/child_process.h"

#include <array>
#include <cstdio>
#include <memory>
#include <string>

#include "runtime/glib_ptr.h"
#include "runtime/private_context.h"

namespace quorvex::linux_service {
namespace {

using FilePtr = std::unique_ptr<FILE, ReleaseWith<fclose>>;

gboolean Cancel(gpointer cancellable) {
  g_cancellable_cancel(static_cast<GCancellable*>(cancellable));
  return G_SOURCE_REMOVE;
}

void KeepResult(GObject* /*process*/, GAsyncResult* result, gpointer kept) {
  static_cast<GObjectPtr<GAsyncResult>*>(kept)->reset(
      static_cast<GAsyncResult*>(g_object_ref(result)));
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

// Not g_subprocess_wait with a thread that cancels it: a cancellation that falls between its first
// look at the cancellable and its waiting is lost, and the wait then lasts as long as the child.
bool WaitForProcess(GSubprocess* process, std::chrono::milliseconds timeout) {
  const PrivateContext context;
  const GObjectPtr<GCancellable> cancellable(g_cancellable_new());
  GObjectPtr<GAsyncResult> result;
  g_subprocess_wait_async(process, cancellable.get(), KeepResult, &result);
  const ContextTimer deadline(context, static_cast<guint>(timeout.count()), Cancel,
                              cancellable.get());
  while (result == nullptr) {
    context.RunOnce();
  }
  GErrorSlot error;
  return g_subprocess_wait_finish(process, result.get(), error.Out()) != FALSE;
}

}  // namespace quorvex::linux_service
