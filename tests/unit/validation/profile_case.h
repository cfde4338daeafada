// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "validation/profile_validation.h"

namespace quorvex::test {

// A configuration and the sentence that refuses it; an empty one for a configuration that passes.
struct ProfileCase {
  const char* name;
  std::string text;
  const char* sentence = "";
};

// The sentence of a verdict, which is empty exactly when the verdict is good.
inline std::string SentenceOf(const linux_service::ValidationResult& verdict) {
  EXPECT_EQ(verdict.valid, verdict.message.empty());
  return verdict.message;
}

// Holds each configuration to its sentence.
template <typename Validate>
void ExpectVerdicts(Validate validate, const std::vector<ProfileCase>& profiles) {
  for (const ProfileCase& profile : profiles) {
    constexpr std::size_t kShown = 400;
    EXPECT_EQ(SentenceOf(validate(profile.text)), profile.sentence)
        << profile.name << ":\n"
        << profile.text.substr(0, kShown);
  }
}

// The sentence that refuses the configuration, or nothing.
inline std::string Refusal(const std::string& protocol, const std::string& rawConfig) {
  return SentenceOf(linux_service::ValidateProfile("profile", protocol, rawConfig));
}

// `text` repeated.
inline std::string Times(std::size_t count, const std::string& text) {
  std::string result;
  result.reserve(count * text.size());
  for (; count > 0; --count) {
    result += text;
  }
  return result;
}

// `text` made `size` bytes long with `filling` behind it.
inline std::string FilledUpTo(std::size_t size, const std::string& text, char filling) {
  return text + std::string(size - text.size(), filling);
}

}  // namespace quorvex::test
