// SPDX-License-Identifier: Apache-2.0
#include "validation/rule_text.h"

#include <glib.h>

#include <algorithm>
#include <cctype>
#include <iterator>
#include <utility>

namespace quorvex::linux_service {

ValidationResult Invalid(std::string message) {
  return {false, std::move(message)};
}

ValidationResult Valid() {
  return {true, {}};
}

std::string Trim(std::string_view text) {
  const auto isSpace = [](unsigned char byte) { return std::isspace(byte) != 0; };
  const auto first = std::ranges::find_if_not(text, isSpace);
  const auto last = std::find_if_not(text.rbegin(), std::make_reverse_iterator(first), isSpace);
  return {first, last.base()};
}

std::string LowercaseAscii(std::string_view text) {
  std::string result(text);
  std::ranges::transform(result, result.begin(), [](char byte) { return g_ascii_tolower(byte); });
  return result;
}

std::vector<std::string> SplitAtCommas(std::string_view text) {
  std::vector<std::string> pieces;
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
