// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace step_faults {

// The text at an address of a process; "?" when there is none.
[[nodiscard]] std::string ReadText(pid_t process, std::uint64_t address);

// The number at an address of a process; zero when there is none.
[[nodiscard]] std::uint64_t ReadNumber(pid_t process, std::uint64_t address);

}  // namespace step_faults
