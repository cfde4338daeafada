// SPDX-License-Identifier: Apache-2.0
#include "service/watchdog.h"

#include <glib.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

#include "service/service.h"

namespace quorvex::service_front {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::string_view kAlive = "WATCHDOG=1";
// So the main loop may stand still for three quarters of the interval.
constexpr std::int64_t kReportsInAnInterval = 4;

// What systemd asked for. No pause: nobody watches. Written once, before the threads that read it.
std::int64_t g_pauseMilliseconds = 0;
int g_socket = -1;
sockaddr_un g_address = {};
socklen_t g_addressLength = 0;

// The variable's text, which is taken out of the environment.
std::string Take(const char* name) {
  const char* value = std::getenv(name);
  std::string text = value == nullptr ? "" : value;
  unsetenv(name);
  return text;
}

std::optional<std::int64_t> Number(const std::string& text) {
  std::int64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [rest, failure] = std::from_chars(text.data(), end, number);
  return failure == std::errc() && rest == end && number > 0 ? std::optional(number) : std::nullopt;
}

// A socket's path, or its name in the abstract space behind an "@".
bool ReadAddress(const std::string& text) {
  if (text.size() < 2 || text.size() >= sizeof g_address.sun_path ||
      (text.front() != '/' && text.front() != '@')) {
    return false;
  }
  g_address.sun_family = AF_UNIX;
  text.copy(g_address.sun_path, text.size());
  const bool isAbstract = text.front() == '@';
  if (isAbstract) {
    g_address.sun_path[0] = '\0';
  }
  // An abstract name has no end but its length; a path ends in a zero.
  g_addressLength =
      static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + text.size() + (isAbstract ? 0 : 1));
  return true;
}

// A report that systemd has no room for is left out: the next one follows before the interval ends.
void Report() {
  static_cast<void>(sendto(g_socket, kAlive.data(), kAlive.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                           reinterpret_cast<const sockaddr*>(&g_address), g_addressLength));
}

gboolean ReportIfWell(gpointer data) {
  static WorkerPulse pulse;
  const auto* service = static_cast<const Service*>(data);
  if (pulse.Beats(service->activeWorkers.load(), service->finishedWorkers.load(), Clock::now())) {
    Report();
  }
  return G_SOURCE_CONTINUE;
}

// Reports until it is asked to end or the limit has passed.
void ReportFor(const std::stop_token& stop, std::chrono::seconds limit) {
  pthread_setname_np(pthread_self(), "quorvex-watch");
  const Clock::time_point begin = Clock::now();
  std::mutex mutex;
  std::condition_variable_any wake;
  std::unique_lock lock(mutex);
  while (!stop.stop_requested() && Clock::now() - begin < limit) {
    Report();
    wake.wait_for(lock, stop, milliseconds(g_pauseMilliseconds), [] { return false; });
  }
}

}  // namespace

void TakeWatchdogFromEnvironment() {
  const std::optional<std::int64_t> interval = Number(Take("WATCHDOG_USEC"));
  const std::string pid = Take("WATCHDOG_PID");
  const std::string socketName = Take("NOTIFY_SOCKET");
  const bool isMeant = pid.empty() || Number(pid) == std::int64_t{getpid()};
  if (!interval || !isMeant || !ReadAddress(socketName)) {
    return;
  }
  g_socket = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (g_socket >= 0) {
    constexpr std::int64_t kMicrosecondsInAMillisecond = 1000;
    const std::int64_t quarter = *interval / kReportsInAnInterval;
    g_pauseMilliseconds = std::max<std::int64_t>(1, quarter / kMicrosecondsInAMillisecond);
  }
}

void ReportFromMainLoop(Service* service) {
  if (g_pauseMilliseconds == 0) {
    return;
  }
  Report();
  g_timeout_add(static_cast<guint>(g_pauseMilliseconds), ReportIfWell, service);
}

bool WorkerPulse::Beats(std::int32_t active, std::uint64_t finished, Clock::time_point now) {
  const bool isActive = active != 0;
  if (!isActive || !wasActive_ || finished != finished_) {
    since_ = now;
  }
  wasActive_ = isActive;
  finished_ = finished;
  return now - since_ <= kLongestWorker;
}

WatchdogPatience::WatchdogPatience(std::chrono::seconds limit) {
  if (g_pauseMilliseconds != 0) {
    reporter_ = std::jthread(ReportFor, limit);
  }
}

}  // namespace quorvex::service_front
