// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <fstream>
#include <map>
#include <string>

#include "tests/support/step_faults/steps.h"

namespace step_faults {

// What to do at which step. Steps are numbered from 1; zero is none.
struct Orders {
  // Whether the steps of all processes that it starts count, too, and a kill is theirs as well.
  bool children = false;
  // Whether a kill leaves these processes alive.
  bool alone = false;
  // Only steps with exactly these words are numbered for the orders; empty: all.
  std::string only;
  std::uint64_t killAt = 0;
  std::uint64_t killAfter = 0;
  std::uint64_t failAt = 0;
  // What the failing step returns; zero: the usual error of such a call.
  int error = 0;
  // Only what happens while this file exists is counted; empty: everything.
  std::string whileFile;
  // Where each step gets a line; empty: nowhere.
  std::string list;
};

// Follows all threads of one process, counts its steps and disturbs one of them. Unless ordered
// otherwise, processes that it starts are left alone.
class Tracer {
 public:
  Tracer(pid_t tracedProcess, Orders given);
  // Takes hold of the process, which must not run anything of its own yet.
  [[nodiscard]] bool Seize() const;
  // Until the process has ended; returns how, as waitpid says it.
  [[nodiscard]] int Run();

 private:
  [[nodiscard]] pid_t ProcessOf(pid_t thread);
  void OnStop(pid_t thread, int status);
  void OnSystemCall(pid_t thread);
  void OnEntry(pid_t thread, const Call& call);
  void OnExit(pid_t thread);
  void OnStep(pid_t thread, const Step& step);
  [[nodiscard]] bool Counts() const;
  void Kill() const;

  pid_t process;
  // The process of each thread that is followed.
  std::map<pid_t, pid_t> processes;
  Orders orders;
  std::ofstream list;
  // All steps, and those that are numbered for the orders.
  std::uint64_t listed = 0;
  std::uint64_t count = 0;
  // The thread within the call that is disturbed at its end, and the error it gets; zero: the end.
  pid_t disturbed = 0;
  int error = 0;
};

}  // namespace step_faults
