// SPDX-License-Identifier: Apache-2.0
#include "control/doctor_findings.h"

#include <algorithm>

#include "control/json_text.h"
#include "control/output.h"

namespace quorvex::control {
namespace {

const char* Word(FindingState state) {
  switch (state) {
    case FindingState::kOk:
      return "ok";
    case FindingState::kNote:
      return "note";
    case FindingState::kMissing:
      return "missing";
    case FindingState::kLeftover:
      return "leftover";
    case FindingState::kUnknown:
      break;
  }
  return "unknown";
}

std::string Padded(std::string text) {
  constexpr std::size_t kWidth = 10;
  text.resize(std::max(text.size() + 1, kWidth), ' ');
  return text;
}

}  // namespace

std::string FindingsText(const Findings& findings) {
  std::string text;
  for (const Finding& finding : findings) {
    text += Padded(Word(finding.state)) + Padded(finding.topic) + Printable(finding.text) + "\n";
    text += finding.advice.empty() ? "" : Padded("") + Padded("") + finding.advice + "\n";
  }
  return text;
}

std::string FindingsJson(const Findings& findings) {
  JsonText json;
  json.Boolean("healthy", IsHealthy(findings)).OpenArray("findings");
  for (const Finding& finding : findings) {
    json.OpenElement()
        .String("state", Word(finding.state))
        .String("topic", finding.topic)
        .String("text", finding.text)
        .StringOrNull("advice", finding.advice)
        .CloseObject();
  }
  return json.CloseArray().End();
}

bool IsHealthy(const Findings& findings) {
  return std::ranges::none_of(
      findings, [](const Finding& finding) { return finding.state >= FindingState::kMissing; });
}

}  // namespace quorvex::control
