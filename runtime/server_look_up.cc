// SPDX-License-Identifier: Apache-2.0
#include "runtime/server_look_up.h"

#include <chrono>
#include <cstddef>
#include <utility>

#include "runtime/glib_ptr.h"
#include "runtime/private_context.h"

namespace quorvex::linux_service {
namespace {

using std::chrono::steady_clock;

constexpr int kLimitSeconds = 5;
constexpr guint kPauseMilliseconds = 50;
// Each question holds a thread, also when nobody waits for its answer any more.
constexpr std::size_t kAtOnce = 8;

using AddressListPtr = std::unique_ptr<GList, ReleaseWith<g_resolver_free_addresses>>;

struct Question {
  std::string name;
  std::vector<std::string> addresses;
  GErrorSlot error;
  std::size_t* running = nullptr;
};

void TakeAnswer(GObject* resolver, GAsyncResult* result, gpointer data) {
  auto* question = static_cast<Question*>(data);
  const AddressListPtr found(
      g_resolver_lookup_by_name_finish(G_RESOLVER(resolver), result, question->error.Out()));
  for (const GList* entry = found.get(); entry != nullptr; entry = entry->next) {
    const GCharPtr text(g_inet_address_to_string(static_cast<GInetAddress*>(entry->data)));
    question->addresses.emplace_back(text.get());
  }
  --*question->running;
}

gboolean KeepAwake(gpointer /*unused*/) {
  return G_SOURCE_CONTINUE;
}

// The questions of one call. Everything happens on one thread, in its private context.
class LookUp {
 public:
  explicit LookUp(const std::vector<std::string>& names) : questions(names.size()) {
    for (std::size_t index = 0; index < names.size(); ++index) {
      questions[index].name = names[index];
      questions[index].running = &running;
    }
  }
  LookUp(const LookUp&) = delete;
  LookUp& operator=(const LookUp&) = delete;
  // The answers that are still awaited refer to the questions.
  ~LookUp() { Abandon(); }

  // False when cancelled.
  [[nodiscard]] bool Run(steady_clock::time_point deadline,
                         const std::function<bool()>& cancelled) {
    const ContextTimer timer(context, kPauseMilliseconds, KeepAwake, nullptr);
    for (AskMore(); running > 0; AskMore()) {
      if (cancelled()) {
        return false;
      }
      if (steady_clock::now() >= deadline) {
        break;
      }
      context.RunOnce();
    }
    Abandon();
    return !cancelled();
  }

  [[nodiscard]] std::vector<std::string> AddressesOfTheOnly() const {
    return questions.front().addresses;
  }

  void Deliver(std::vector<NamedServer>* servers) {
    for (Question& question : questions) {
      if (question.addresses.empty()) {
        Warn(question);
      } else {
        servers->push_back({std::move(question.name), std::move(question.addresses)});
      }
    }
  }

 private:
  void AskMore() {
    while (running < kAtOnce && next < questions.size()) {
      ++running;
      Question* question = &questions[next++];
      g_resolver_lookup_by_name_async(resolver.get(), question->name.c_str(), cancellable.get(),
                                      TakeAnswer, question);
    }
  }

  // The resolver's threads may go on, but nothing of ours waits for them.
  void Abandon() {
    g_cancellable_cancel(cancellable.get());
    while (running > 0) {
      context.RunOnce();
    }
  }

  static void Warn(const Question& question) {
    if (question.error.IsSet() && !question.error.Matches(G_IO_ERROR, G_IO_ERROR_CANCELLED)) {
      g_log(nullptr, G_LOG_LEVEL_WARNING, "%s", question.error.MessageOr(""));
    } else {
      g_log(nullptr, G_LOG_LEVEL_WARNING, "Error resolving “%s”: no answer within %d seconds",
            question.name.c_str(), kLimitSeconds);
    }
  }

  const PrivateContext context;
  const GObjectPtr<GResolver> resolver{g_resolver_get_default()};
  const GObjectPtr<GCancellable> cancellable{g_cancellable_new()};
  std::vector<Question> questions;
  std::size_t next = 0;
  std::size_t running = 0;
};

}  // namespace

bool LookUpServers(const std::vector<std::string>& names, const std::function<bool()>& cancelled,
                   std::vector<NamedServer>* servers) {
  servers->clear();
  if (names.empty()) {
    return true;
  }
  LookUp lookUp(names);
  if (!lookUp.Run(steady_clock::now() + std::chrono::seconds(kLimitSeconds), cancelled)) {
    return false;
  }
  lookUp.Deliver(servers);
  return true;
}

std::vector<std::string> LookUpAddresses(const std::string& name,
                                         const std::function<bool()>& cancelled) {
  LookUp lookUp({name});
  if (!lookUp.Run(steady_clock::time_point::max(), cancelled)) {
    return {};
  }
  return lookUp.AddressesOfTheOnly();
}

}  // namespace quorvex::linux_service
