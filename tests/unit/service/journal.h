// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <glib.h>

#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace quorvex::test {

// Collects what the code under test logs while it lives; one at a time. Any thread may log.
class Journal {
 public:
  using Entry = std::pair<GLogLevelFlags, std::string>;

  Journal() : before(g_log_set_default_handler(Collect, this)) {}
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;
  ~Journal() { g_log_set_default_handler(before, nullptr); }

  [[nodiscard]] std::vector<Entry> Entries() const {
    const std::scoped_lock lock(mutex);
    return entries;
  }

 private:
  static void Collect(const char* /*domain*/, GLogLevelFlags level, const char* message,
                      gpointer self) {
    auto* journal = static_cast<Journal*>(self);
    const std::scoped_lock lock(journal->mutex);
    journal->entries.emplace_back(level, message);
  }

  mutable std::mutex mutex;
  std::vector<Entry> entries;
  GLogFunc before;
};

}  // namespace quorvex::test
