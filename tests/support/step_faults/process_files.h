// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>

namespace step_faults {

// The process that a thread belongs to; the thread itself when it is gone.
[[nodiscard]] pid_t ReadProcess(pid_t thread);

// The short name of the program that a process runs.
[[nodiscard]] std::string ReadName(pid_t process);

}  // namespace step_faults
