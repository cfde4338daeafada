// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/runtime/system_call_watch.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <seccomp.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <thread>

namespace quorvex::test {
namespace {

// A watch that cannot be set up makes every test that relies on it worthless.
void Require(bool condition, const char* what) {
  if (!condition) {
    ADD_FAILURE() << "The system-call watch cannot " << what << ".";
    std::abort();
  }
}

// Filters the calling thread for the rest of its life; returns the descriptor on which its held
// calls arrive.
int WatchThisThread(const std::vector<const char*>& names) {
  const scmp_filter_ctx filter = seccomp_init(SCMP_ACT_ALLOW);
  Require(filter != nullptr, "be created");
  for (const char* name : names) {
    const int number = seccomp_syscall_resolve_name(name);
    Require(seccomp_rule_add(filter, SCMP_ACT_NOTIFY, number, 0) == 0, name);
  }
  Require(seccomp_load(filter) == 0, "be loaded");
  const int notifications = seccomp_notify_fd(filter);
  seccomp_release(filter);
  return notifications;
}

std::string NameOf(const seccomp_data& data) {
  const std::unique_ptr<char, decltype(&std::free)> name(
      seccomp_syscall_resolve_num_arch(data.arch, data.nr), std::free);
  return name != nullptr ? name.get() : "unknown";
}

SystemCall Describe(const seccomp_data& data) {
  SystemCall call{.name = NameOf(data)};
  std::ranges::copy(data.args, call.arguments.begin());
  return call;
}

void Respond(int notifications, std::uint64_t id, const Answer& answer,
             seccomp_notif_resp* response) {
  response->id = id;
  response->flags = answer.Proceeds() ? SECCOMP_USER_NOTIF_FLAG_CONTINUE : 0;
  response->error = answer.Error();
  response->val = answer.Value();
  Require(seccomp_notify_respond(notifications, response) == 0, "answer");
}

// Until the last watched thread has ended, which the kernel reports as a hang-up. What the thread
// does after its body is the runtime's own (sanitizers free their records of it) and does not
// count.
std::vector<SystemCall> AnswerCalls(int notifications, const Judge& judge,
                                    const std::atomic<bool>& bodyEnded) {
  std::vector<SystemCall> calls;
  seccomp_notif* request = nullptr;
  seccomp_notif_resp* response = nullptr;
  Require(seccomp_notify_alloc(&request, &response) == 0, "allocate");
  pollfd ready = {.fd = notifications, .events = POLLIN, .revents = 0};
  while (poll(&ready, 1, -1) > 0 && (ready.revents & POLLIN) != 0) {
    // The kernel takes only an empty record to fill.
    *request = {};
    Require(seccomp_notify_receive(notifications, request) == 0, "receive");
    if (bodyEnded) {
      Respond(notifications, request->id, Answer::Proceed(), response);
      continue;
    }
    calls.push_back(Describe(request->data));
    Respond(notifications, request->id, judge(calls.back()), response);
  }
  seccomp_notify_free(request, response);
  return calls;
}

}  // namespace

std::vector<SystemCall> Watch(const std::vector<const char*>& names, const Judge& judge,
                              const std::function<void()>& body) {
  // Any way of waking the watcher might itself be a watched call, so it looks.
  std::atomic<int> notifications{-1};
  std::atomic<bool> bodyEnded{false};
  std::thread watched([&] {
    notifications = WatchThisThread(names);
    body();
    bodyEnded = true;
  });
  while (notifications < 0) {
    std::this_thread::yield();
  }
  std::vector<SystemCall> calls = AnswerCalls(notifications, judge, bodyEnded);
  watched.join();
  // libseccomp keeps one listener for the process: this closes it and makes room for the next.
  seccomp_reset(nullptr, 0);
  return calls;
}

}  // namespace quorvex::test
