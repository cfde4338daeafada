// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gio/gio.h>

#include "runtime/glib_ptr.h"

namespace quorvex::linux_service {

// A main context for one wait of the thread that makes it: asynchronous calls made meanwhile answer
// there, and nothing else of the service runs in it. Made and destroyed by the same thread.
class PrivateContext {
 public:
  PrivateContext() { g_main_context_push_thread_default(context.get()); }
  PrivateContext(const PrivateContext&) = delete;
  PrivateContext& operator=(const PrivateContext&) = delete;
  ~PrivateContext() { g_main_context_pop_thread_default(context.get()); }

  [[nodiscard]] GMainContext* Get() const { return context.get(); }
  // Waits for the next event and dispatches it.
  void RunOnce() const { g_main_context_iteration(context.get(), TRUE); }

 private:
  GMainContextPtr context{g_main_context_new()};
};

// A repeated or single call of `callback` in a private context, on the monotonic clock; never after
// its own end. `interval` is in milliseconds.
class ContextTimer {
 public:
  ContextTimer(const PrivateContext& context, guint interval, GSourceFunc callback, gpointer data)
      : source(g_timeout_source_new(interval)) {
    g_source_set_callback(source.get(), callback, data, nullptr);
    g_source_attach(source.get(), context.Get());
  }
  ContextTimer(const ContextTimer&) = delete;
  ContextTimer& operator=(const ContextTimer&) = delete;
  ~ContextTimer() { g_source_destroy(source.get()); }

 private:
  GSourcePtr source;
};

}  // namespace quorvex::linux_service
