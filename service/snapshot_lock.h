// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <glib.h>

#if defined(__SANITIZE_THREAD__)
#define QUORVEX_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define QUORVEX_THREAD_SANITIZER 1
#endif
#endif
#if defined(QUORVEX_THREAD_SANITIZER)
#include <sanitizer/tsan_interface.h>
#endif

namespace quorvex::service_front {

// Holds a GMutex for a scope. GLib builds its mutex on futexes in a library that ThreadSanitizer
// does not see, so the lock is announced to it here.
class SnapshotLock {
 public:
  explicit SnapshotLock(GMutex* guarded) : mutex(guarded) {
#if defined(QUORVEX_THREAD_SANITIZER)
    __tsan_mutex_pre_lock(mutex, 0);
#endif
    g_mutex_lock(mutex);
#if defined(QUORVEX_THREAD_SANITIZER)
    __tsan_mutex_post_lock(mutex, 0, 0);
#endif
  }
  SnapshotLock(const SnapshotLock&) = delete;
  SnapshotLock& operator=(const SnapshotLock&) = delete;
  ~SnapshotLock() {
#if defined(QUORVEX_THREAD_SANITIZER)
    __tsan_mutex_pre_unlock(mutex, 0);
#endif
    g_mutex_unlock(mutex);
#if defined(QUORVEX_THREAD_SANITIZER)
    __tsan_mutex_post_unlock(mutex, 0);
#endif
  }

 private:
  GMutex* mutex;
};

}  // namespace quorvex::service_front
