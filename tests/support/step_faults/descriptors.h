// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>

namespace step_faults {

// What a descriptor of a process leads to.
struct Opened {
  enum class Kind { kNothing, kFile, kPipe, kUnixSocket, kNetlink, kOtherSocket };
  Kind kind = Kind::kNothing;
  // A file's path, a socket's peer, or a word for the kind. Event counters, the null device
  // and a process's own pair of sockets count as nothing: who writes there tells nobody else.
  std::string name;
};

[[nodiscard]] Opened WhatIsOpened(pid_t process, int descriptor);

}  // namespace step_faults
