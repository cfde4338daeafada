// SPDX-License-Identifier: Apache-2.0
#include "validation/json_rewrite_guard.h"

#include <glib.h>

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <system_error>

namespace quorvex::linux_service {
namespace {

constexpr char kUnescapedControl = '\x1F';

// A number's digits and what they count in.
struct Digits {
  std::string_view text;
  int base = 10;
};

Digits DigitsOf(std::string_view word) {
  if (word.starts_with('$')) {
    return {word.substr(1), 16};
  }
  if (!word.starts_with('0') || word.size() == 1) {
    return {word, 10};
  }
  switch (word[1]) {
    case 'x':
    case 'X':
      return {word.substr(2), 16};
    case 'b':
    case 'B':
      return {word.substr(2), 2};
    default:
      return {word, 8};
  }
}

bool IsKeptInteger(const Digits& digits) {
  std::uint64_t value = 0;
  const char* end = digits.text.data() + digits.text.size();
  const std::from_chars_result read = std::from_chars(digits.text.data(), end, value, digits.base);
  return read.ec == std::errc() && read.ptr == end &&
         value <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
}

// json-glib writes 17 digits, and ".0" behind them if they have no point.
bool IsKeptFraction(std::string_view word) {
  const double value = g_ascii_strtod(std::string(word).c_str(), nullptr);
  std::array<char, G_ASCII_DTOSTR_BUF_SIZE> buffer = {};
  const std::string_view written =
      g_ascii_dtostr(buffer.data(), static_cast<int>(buffer.size()), value);
  return std::isfinite(value) && (written.find('.') != std::string_view::npos ||
                                  written.find('e') == std::string_view::npos);
}

bool IsKeptWord(std::string_view word) {
  const char first = word.front();
  if (!g_ascii_isdigit(first) && first != '.' && first != '$') {
    return true;
  }
  const Digits digits = DigitsOf(word);
  const bool isFraction = digits.base != 16 && word.find_first_of(".eE") != std::string_view::npos;
  return isFraction ? IsKeptFraction(word) : IsKeptInteger(digits);
}

bool IsKeptString(const JsonTokenReader& tokens) {
  if (tokens.TextIsVerbatim()) {
    return true;
  }
  const std::string_view text = tokens.Text();
  return !tokens.TextWasCut() && text.find(kUnescapedControl) == std::string_view::npos &&
         g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr) != FALSE;
}

}  // namespace

bool SurvivesRewriting(std::string_view text) {
  if (!BytesSurviveRewriting(text)) {
    return false;
  }
  JsonTokenReader tokens(text);
  for (JsonTokenKind kind = tokens.Next(); kind != JsonTokenKind::kEnd; kind = tokens.Next()) {
    if (!TokenSurvivesRewriting(kind, tokens)) {
      return false;
    }
  }
  return true;
}

bool BytesSurviveRewriting(std::string_view text) {
  return text.find(kUnescapedControl) == std::string_view::npos;
}

bool TokenSurvivesRewriting(JsonTokenKind kind, const JsonTokenReader& tokens) {
  switch (kind) {
    case JsonTokenKind::kBroken:
      return false;
    case JsonTokenKind::kString:
      return IsKeptString(tokens);
    case JsonTokenKind::kWord:
      return IsKeptWord(tokens.Text());
    default:
      return true;
  }
}

}  // namespace quorvex::linux_service
