// SPDX-License-Identifier: Apache-2.0
//
// Reports to systemd's watchdog, if it watches this process, that the service is alive.
#pragma once

#include <chrono>
#include <cstdint>
#include <thread>

namespace quorvex::service_front {

struct Service;

// Learns from the environment how often systemd wants to hear from us and where, and takes that out
// of it: an engine would else speak in the service's name. Called before there is a second thread.
void TakeWatchdogFromEnvironment();

// Reports from the default main context, four times in systemd's interval, so that a main loop
// which hangs is noticed; and not any more while a worker takes longer than any can.
void ReportFromMainLoop(Service* service);

// Tells whether the workers move, by what the main loop sees of them now and then.
class WorkerPulse {
 public:
  // Longer than a start, its failure and its clean-up with every tool at its limit. Only the search
  // for servers' names has no limit of its own; resolvers have.
  static constexpr std::chrono::minutes kLongestWorker{10};

  // False when workers have been active for longer than that without one of them finishing.
  bool Beats(std::int32_t active, std::uint64_t finished,
             std::chrono::steady_clock::time_point now);

 private:
  bool wasActive_ = false;
  std::uint64_t finished_ = 0;
  std::chrono::steady_clock::time_point since_;
};

// Reports, from a thread of its own, while the main thread does something that may rightly take
// longer than systemd's interval, until it is destroyed or `limit` has passed.
class WatchdogPatience {
 public:
  // For what ends by somebody else's will alone.
  static constexpr std::chrono::hours kNoLimit{24 * 365};

  explicit WatchdogPatience(std::chrono::seconds limit);

 private:
  // Ends and is waited for with the object; none where nobody watches.
  std::jthread reporter_;
};

}  // namespace quorvex::service_front
