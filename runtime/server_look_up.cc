// SPDX-License-Identifier: Apache-2.0
#include "runtime/server_look_up.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <utility>

#include "killswitch/kill_switch.h"
#include "runtime/glib_ptr.h"

namespace quorvex::linux_service {
namespace {

using std::chrono::steady_clock;

constexpr int kLimitSeconds = 5;
constexpr std::chrono::milliseconds kPause{50};
constexpr std::size_t kWarningLimit = 8;
// No engine tries more: OpenVPN, for one, refuses a 65th remote.
constexpr std::size_t kMostNames = 64;

// GLib looks a name up on one of its ten task threads, which also feed nft and end with the
// resolver's patience, not with ours. So few of them are taken by the whole process, those of
// abandoned look-ups included, that the rest always goes on.
constexpr int kAtOnce = 4;
std::atomic<int> lookUpsUnderWay{0};

using GThreadPtr = std::unique_ptr<GThread, ReleaseWith<g_thread_unref>>;

// What the threads of one call share with it. The last one to leave frees it.
struct Answers {
  explicit Answers(std::size_t count) : list(count) {}

  std::mutex mutex;
  std::condition_variable arrived;
  std::vector<ResolverAnswer> list;
  std::size_t arrivedCount = 0;

  void Put(std::size_t index, ResolverAnswer answer) {
    {
      const std::scoped_lock lock(mutex);
      list[index] = std::move(answer);
      ++arrivedCount;
    }
    arrived.notify_all();
  }
};

struct Question {
  std::shared_ptr<Answers> answers;
  std::size_t index;
  std::string name;
};

gpointer LookUpThread(gpointer data) {
  const std::unique_ptr<Question> question(static_cast<Question*>(data));
  ResolverAnswer answer = AskResolver(question->name);
  lookUpsUnderWay.fetch_sub(1);
  question->answers->Put(question->index, std::move(answer));
  return nullptr;
}

bool TakePlace() {
  int taken = lookUpsUnderWay.load();
  while (taken < kAtOnce) {
    if (lookUpsUnderWay.compare_exchange_weak(taken, taken + 1)) {
      return true;
    }
  }
  return false;
}

// The questions of one call.
class LookUp {
 public:
  explicit LookUp(const std::vector<std::string>& asked)
      : names(asked), answers(std::make_shared<Answers>(asked.size())) {}

  // False when cancelled. What has not answered by then goes on for nobody.
  [[nodiscard]] bool Run(steady_clock::time_point deadline,
                         const std::function<bool()>& cancelled) {
    for (std::size_t seen = 0; seen < names.size() && steady_clock::now() < deadline;) {
      if (cancelled()) {
        return false;
      }
      AskMore();
      seen = AwaitMoreThan(seen);
    }
    return !cancelled();
  }

  // The answers so far, in the order of the names.
  [[nodiscard]] std::vector<ResolverAnswer> Take() {
    const std::scoped_lock lock(answers->mutex);
    return answers->list;
  }

 private:
  // How many answers there are once there is another one, or after a pause.
  [[nodiscard]] std::size_t AwaitMoreThan(std::size_t seen) {
    std::unique_lock lock(answers->mutex);
    answers->arrived.wait_for(lock, kPause, [this, seen] { return answers->arrivedCount > seen; });
    return answers->arrivedCount;
  }

  void AskMore() {
    while (next < names.size() && TakePlace()) {
      Ask(next++);
    }
  }

  void Ask(std::size_t index) {
    auto question = std::make_unique<Question>(Question{answers, index, names[index]});
    GErrorSlot error;
    const GThreadPtr thread(
        g_thread_try_new("quorvex-look-up", LookUpThread, question.get(), error.Out()));
    if (thread != nullptr) {
      static_cast<void>(question.release());
      return;
    }
    lookUpsUnderWay.fetch_sub(1);
    answers->Put(index, {{}, error.MessageOr("")});
  }

  const std::vector<std::string>& names;
  std::shared_ptr<Answers> answers;
  std::size_t next = 0;
};

void Warn(const std::string& name, const ResolverAnswer& answer) {
  const std::string late = "no answer within " + std::to_string(kLimitSeconds) + " seconds";
  g_log(nullptr, G_LOG_LEVEL_WARNING, "The address of the VPN server “%s” is not known: %s",
        name.c_str(), (answer.failure.empty() ? late : answer.failure).c_str());
}

void WarnOfMore(std::size_t unanswered) {
  if (unanswered > kWarningLimit) {
    g_log(nullptr, G_LOG_LEVEL_WARNING, "The addresses of %zu more VPN servers are not known.",
          unanswered - kWarningLimit);
  }
}

}  // namespace

bool LookUpServers(const std::vector<std::string>& names, const std::function<bool()>& cancelled,
                   std::vector<NamedServer>* servers) {
  servers->clear();
  if (names.empty()) {
    return true;
  }
  const std::vector<std::string> asked(
      names.begin(),
      names.begin() + static_cast<std::ptrdiff_t>(std::min(names.size(), kMostNames)));
  LookUp lookUp(asked);
  if (!lookUp.Run(steady_clock::now() + std::chrono::seconds(kLimitSeconds), cancelled)) {
    return false;
  }
  std::vector<ResolverAnswer> answers = lookUp.Take();
  std::size_t unanswered = 0;
  for (std::size_t index = 0; index < asked.size(); ++index) {
    if (!answers[index].addresses.empty()) {
      servers->push_back({asked[index], std::move(answers[index].addresses)});
    } else if (++unanswered <= kWarningLimit) {
      Warn(asked[index], answers[index]);
    }
  }
  WarnOfMore(unanswered + names.size() - asked.size());
  return true;
}

std::vector<std::string> LookUpAddresses(const std::string& name,
                                         const std::function<bool()>& cancelled) {
  const std::vector<std::string> names = {name};
  LookUp lookUp(names);
  if (!lookUp.Run(steady_clock::time_point::max(), cancelled)) {
    return {};
  }
  return std::move(lookUp.Take().front().addresses);
}

}  // namespace quorvex::linux_service
