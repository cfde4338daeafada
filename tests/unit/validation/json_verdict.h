// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

#include "validation/json_text_guard.h"

namespace quorvex::linux_service {

// The verdict alone.
inline JsonTextVerdict JudgeJsonText(std::string_view text, const JsonTextLimits& limits = {}) {
  return SurveyJsonText(text, limits, [](JsonTokenKind, const JsonTokenReader&) {}).verdict;
}

}  // namespace quorvex::linux_service
