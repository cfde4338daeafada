// SPDX-License-Identifier: Apache-2.0
#include "tests/support/step_faults/tracer.h"

#include <sys/ptrace.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <utility>

#include "tests/support/step_faults/process_files.h"

namespace step_faults {
namespace {

// Threads are followed from their first instruction.
constexpr long kFollowThreads = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE;
constexpr long kFollowChildren = PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK;
// What is still followed when the tracer ends is killed, instead of being let go.
constexpr long kEndTogether = PTRACE_O_EXITKILL;
constexpr int kSystemCallStop = SIGTRAP | 0x80;

// A thread that has been killed meanwhile cannot be asked or told anything, and needs not be.
template <typename Address, typename Data>
bool Ask(__ptrace_request request, pid_t thread, Address address, Data data) {
  return ptrace(request, thread, address, data) >= 0;
}

void Continue(pid_t thread, int signal) {
  static_cast<void>(Ask(PTRACE_SYSCALL, thread, nullptr, signal));
}

// A whole process that was stopped stays so until SIGCONT.
void StayStopped(pid_t thread) {
  static_cast<void>(Ask(PTRACE_LISTEN, thread, nullptr, nullptr));
}

// No call has this number, so that the kernel does nothing at all.
void LeaveOut(pid_t thread) {
  user_regs_struct registers{};
  if (Ask(PTRACE_GETREGS, thread, nullptr, &registers)) {
    registers.orig_rax = ~0ULL;
    static_cast<void>(Ask(PTRACE_SETREGS, thread, nullptr, &registers));
  }
}

void Return(pid_t thread, int error) {
  user_regs_struct registers{};
  if (Ask(PTRACE_GETREGS, thread, nullptr, &registers)) {
    registers.rax = static_cast<unsigned long long>(-static_cast<long long>(error));
    static_cast<void>(Ask(PTRACE_SETREGS, thread, nullptr, &registers));
  }
}

}  // namespace

Tracer::Tracer(pid_t tracedProcess, Orders given)
    : process(tracedProcess), orders(std::move(given)) {
  if (!orders.list.empty()) {
    list.open(orders.list);
  }
}

bool Tracer::Seize() const {
  const long followed = kFollowThreads | (orders.children ? kFollowChildren : 0);
  return Ask(PTRACE_SEIZE, process, nullptr, followed | (orders.alone ? 0 : kEndTogether));
}

pid_t Tracer::ProcessOf(pid_t thread) {
  const auto [entry, isNew] = processes.try_emplace(thread, thread);
  if (isNew) {
    entry->second = ReadProcess(thread);
  }
  return entry->second;
}

int Tracer::Run() {
  for (;;) {
    int status = 0;
    const pid_t thread = waitpid(-1, &status, __WALL);
    if (thread < 0) {
      return status;
    }
    if (WIFSTOPPED(status)) {
      OnStop(thread, status);
      continue;
    }
    processes.erase(thread);
    if (thread == process) {
      // The kernel tells the end of the first thread last.
      return status;
    }
  }
}

void Tracer::OnStop(pid_t thread, int status) {
  const int event = status >> 16;
  const int signal = WSTOPSIG(status);
  if (signal == kSystemCallStop) {
    OnSystemCall(thread);
    Continue(thread, 0);
  } else if (event == PTRACE_EVENT_STOP && signal != SIGTRAP) {
    StayStopped(thread);
  } else {
    // A signal on its way goes on; an event of our own is none.
    Continue(thread, event == 0 ? signal : 0);
  }
}

void Tracer::OnSystemCall(pid_t thread) {
  __ptrace_syscall_info info{};
  if (!Ask(PTRACE_GET_SYSCALL_INFO, thread, sizeof info, &info)) {
    return;
  }
  if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
    Call call{ProcessOf(thread), info.entry.nr, {}};
    std::ranges::copy(info.entry.args, call.arguments.begin());
    OnEntry(thread, call);
  } else if (info.op == PTRACE_SYSCALL_INFO_EXIT && thread == disturbed) {
    OnExit(thread);
  }
}

void Tracer::OnEntry(pid_t thread, const Call& call) {
  const std::optional<Step> step = StepOf(call);
  if (!step || !Counts()) {
    return;
  }
  list << ++listed << ' ' << (call.process == process ? "" : ReadName(call.process) + ": ")
       << step->text;
  if (orders.only.empty() || orders.only == step->text) {
    ++count;
    OnStep(thread, *step);
  }
  list << std::endl;
}

void Tracer::OnStep(pid_t thread, const Step& step) {
  if (count == orders.killAt) {
    // Said first, for whoever looks when the program is gone.
    list << " -> killed before" << std::flush;
    Kill();
  } else if (count == orders.killAfter) {
    list << " -> killed after";
    disturbed = thread;
  } else if (count == orders.failAt) {
    disturbed = thread;
    error = orders.error != 0 ? orders.error : step.usualError;
    list << " -> " << strerrorname_np(error);
    LeaveOut(thread);
  }
}

void Tracer::OnExit(pid_t thread) {
  disturbed = 0;
  if (error != 0) {
    Return(thread, error);
  } else {
    Kill();
  }
}

bool Tracer::Counts() const {
  return orders.whileFile.empty() || access(orders.whileFile.c_str(), F_OK) == 0;
}

void Tracer::Kill() const {
  for (const auto& [thread, owner] : processes) {
    if (owner == process || !orders.alone) {
      static_cast<void>(kill(owner, SIGKILL));
    }
  }
}

}  // namespace step_faults
