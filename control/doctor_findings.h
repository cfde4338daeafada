// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace quorvex::control {

enum class FindingState {
  kOk,
  // Worth knowing, nothing to mend.
  kNote,
  // Cannot be told from here, or not without root.
  kUnknown,
  kMissing,
  // Something of a tunnel is still there although there is no tunnel.
  kLeftover,
};

struct Finding {
  FindingState state = FindingState::kOk;
  // What it is about, for example "polkit".
  std::string topic;
  // Without a full stop.
  std::string text;
  // What to do; empty when nothing is to be done.
  std::string advice;
};

using Findings = std::vector<Finding>;

// One line for each finding, and one below for its advice.
[[nodiscard]] std::string FindingsText(const Findings& findings);
// {"healthy": ..., "findings": [{"state", "topic", "text", "advice"}]}
[[nodiscard]] std::string FindingsJson(const Findings& findings);
// Whether nothing is missing and nothing was left over.
[[nodiscard]] bool IsHealthy(const Findings& findings);

}  // namespace quorvex::control
