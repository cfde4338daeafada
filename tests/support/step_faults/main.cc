// SPDX-License-Identifier: Apache-2.0
//
// Runs a program and disturbs one of the system calls by which it changes something outside itself:
// kills the program there, or lets the call fail. Ends as the program ends.
#include <getopt.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

#include "tests/support/step_faults/tracer.h"

namespace step_faults {
namespace {

constexpr char kUsage[] =
    "Usage: step_faults [OPTION...] PROGRAM [ARGUMENT...]\n"
    "  --list FILE       a numbered line for each step\n"
    "  --while-file FILE counts only steps that begin while FILE exists\n"
    "  --children        counts the steps of the program's children, too, and kills them with it\n"
    "  --alone           leaves them alive all the same\n"
    "  --only STEP       numbers only steps that FILE would list with these words\n"
    "  --kill-at N       kills the program before its N-th step takes effect\n"
    "  --kill-after N    kills it as soon as that step has taken effect\n"
    "  --fail-at N       leaves that step out and lets it fail\n"
    "  --errno NAME      with this error instead of the usual one of such a call\n";
constexpr int kWrongUsage = 2;
constexpr int kCannotRun = 127;
constexpr int kLastError = 133;

enum Option {
  kList = 1,
  kWhileFile,
  kChildren,
  kAlone,
  kOnly,
  kKillAt,
  kKillAfter,
  kFailAt,
  kErrno
};

constexpr std::array kOptions = {
    option{"list", required_argument, nullptr, kList},
    option{"while-file", required_argument, nullptr, kWhileFile},
    option{"children", no_argument, nullptr, kChildren},
    option{"alone", no_argument, nullptr, kAlone},
    option{"only", required_argument, nullptr, kOnly},
    option{"kill-at", required_argument, nullptr, kKillAt},
    option{"kill-after", required_argument, nullptr, kKillAfter},
    option{"fail-at", required_argument, nullptr, kFailAt},
    option{"errno", required_argument, nullptr, kErrno},
    option{},
};

// Zero for a name that no error has.
int ErrorNamed(std::string_view name) {
  for (int error = 1; error <= kLastError; ++error) {
    const char* known = strerrorname_np(error);
    if (known != nullptr && name == known) {
      return error;
    }
  }
  return 0;
}

bool TakeOption(int found, const char* value, Orders* orders) {
  switch (found) {
    case kList:
      orders->list = value;
      return true;
    case kWhileFile:
      orders->whileFile = value;
      return true;
    case kChildren:
      orders->children = true;
      return true;
    case kAlone:
      orders->alone = true;
      return true;
    case kOnly:
      orders->only = value;
      return true;
    case kKillAt:
      orders->killAt = std::strtoull(value, nullptr, 10);
      return orders->killAt != 0;
    case kKillAfter:
      orders->killAfter = std::strtoull(value, nullptr, 10);
      return orders->killAfter != 0;
    case kFailAt:
      orders->failAt = std::strtoull(value, nullptr, 10);
      return orders->failAt != 0;
    case kErrno:
      orders->error = ErrorNamed(value);
      return orders->error != 0;
    default:
      return false;
  }
}

// Nothing when the command line makes no sense; else the program begins at argv[optind].
std::optional<Orders> ReadOrders(int argc, char** argv) {
  Orders orders;
  int found = 0;
  // The plus leaves the program its own options.
  while ((found = getopt_long(argc, argv, "+", kOptions.data(), nullptr)) != -1) {
    if (!TakeOption(found, optarg, &orders)) {
      return std::nullopt;
    }
  }
  return optind < argc ? std::optional(orders) : std::nullopt;
}

int Fail(const char* what) {
  std::perror(what);
  return kCannotRun;
}

[[noreturn]] void BecomeProgram(char** argv) {
  // Until the tracer has taken hold.
  static_cast<void>(raise(SIGSTOP));
  execv(argv[0], argv);
  _exit(Fail(argv[0]));
}

int EndLike(int status) {
  if (WIFSIGNALED(status)) {
    static_cast<void>(std::signal(WTERMSIG(status), SIG_DFL));
    static_cast<void>(raise(WTERMSIG(status)));
  }
  return WEXITSTATUS(status);
}

int Run(const Orders& orders, char** argv) {
  const pid_t program = fork();
  if (program < 0) {
    return Fail("fork");
  }
  if (program == 0) {
    BecomeProgram(argv);
  }
  int stopped = 0;
  static_cast<void>(waitpid(program, &stopped, WUNTRACED));
  Tracer tracer(program, orders);
  if (!tracer.Seize()) {
    return Fail("ptrace");
  }
  static_cast<void>(kill(program, SIGCONT));
  return EndLike(tracer.Run());
}

}  // namespace
}  // namespace step_faults

int main(int argc, char** argv) {
  const auto orders = step_faults::ReadOrders(argc, argv);
  if (!orders) {
    static_cast<void>(std::fputs(step_faults::kUsage, stderr));
    return step_faults::kWrongUsage;
  }
  return step_faults::Run(*orders, argv + optind);
}
