// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

namespace quorvex::linux_service {

// A list of texts in order of first appearance, each once by exact comparison. Adding takes
// constant time: a profile may name very many.
class UniqueTexts {
 public:
  void Add(std::string text) {
    if (seen.insert(text).second) {
      texts.push_back(std::move(text));
    }
  }
  [[nodiscard]] std::vector<std::string> Take() && { return std::move(texts); }

 private:
  std::vector<std::string> texts;
  std::unordered_set<std::string> seen;
};

}  // namespace quorvex::linux_service
