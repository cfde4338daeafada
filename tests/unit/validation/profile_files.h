// SPDX-License-Identifier: Apache-2.0
//
// The realistic profiles that lie in tests/data/profiles.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/unit/validation/profile_case.h"

namespace quorvex::test {

// Every profile of the engine's folder, which must hold at least `least` of them, in the order of
// their names.
inline std::vector<std::filesystem::path> ProfileFiles(const std::string& engine,
                                                       std::size_t least) {
  const std::filesystem::path folder = std::filesystem::path(QUORVEX_PROFILES) / engine;
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    files.push_back(entry.path());
  }
  std::ranges::sort(files);
  EXPECT_GE(files.size(), least) << folder;
  return files;
}

inline std::string TextOf(const std::filesystem::path& file) {
  std::ifstream stream(file);
  return {std::istreambuf_iterator<char>(stream), {}};
}

}  // namespace quorvex::test
