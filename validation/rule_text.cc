// SPDX-License-Identifier: Apache-2.0
#include "validation/rule_text.h"

#include <algorithm>
#include <utility>

namespace quorvex::linux_service {

ValidationResult Invalid(std::string message) {
  return {false, std::move(message)};
}

ValidationResult Valid() {
  return {true, {}};
}

std::string_view Trim(std::string_view text) {
  while (!text.empty() && IsSpace(text.front())) {
    text.remove_prefix(1);
  }
  while (!text.empty() && IsSpace(text.back())) {
    text.remove_suffix(1);
  }
  return text;
}

std::string LowercaseAscii(std::string_view text) {
  std::string result(text);
  for (char& byte : result) {
    byte = LowercaseAscii(byte);
  }
  return result;
}

bool EqualsIgnoringCase(std::string_view left, std::string_view right) {
  return std::ranges::equal(left, right, [](char one, char other) {
    return LowercaseAscii(one) == LowercaseAscii(other);
  });
}

std::vector<std::string_view> SplitAtCommas(std::string_view text) {
  std::vector<std::string_view> pieces;
  while (!text.empty()) {
    const std::size_t comma = text.find(',');
    pieces.push_back(Trim(text.substr(0, comma)));
    if (comma == std::string_view::npos) {
      break;
    }
    text.remove_prefix(comma + 1);
    if (text.empty()) {
      pieces.emplace_back();
    }
  }
  return pieces;
}

std::string_view TakeLine(std::string_view* rest) {
  const std::size_t end = rest->find('\n');
  const std::string_view line = rest->substr(0, end);
  rest->remove_prefix(end == std::string_view::npos ? rest->size() : end + 1);
  return line;
}

bool IsBlankOrComment(std::string_view line) {
  return line.empty() || line.front() == '#' || line.front() == ';';
}

}  // namespace quorvex::linux_service
