// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace step_faults {

// A system call of one of the process's threads, at its entry.
struct Call {
  pid_t process = 0;
  std::uint64_t number = 0;
  std::array<std::uint64_t, 6> arguments{};
};

// A call that changes something outside its process.
struct Step {
  // The call and what it works on: "unlink /run/quorvexvpn/xray.json", "sendto netlink".
  std::string text;
  // What such a call fails with when it fails.
  int usualError = 0;
};

// Nothing for a call that only looks, waits or concerns the process itself.
[[nodiscard]] std::optional<Step> StepOf(const Call& call);

}  // namespace step_faults
