// SPDX-License-Identifier: Apache-2.0
#include "validation/json_tokens.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>

namespace quorvex::linux_service {
namespace {

constexpr char kComment = '/';

// A set of bytes that is asked for every byte of a text.
class ByteSet {
 public:
  constexpr explicit ByteSet(std::string_view members) {
    for (const char byte : members) {
      isMember[static_cast<unsigned char>(byte)] = true;
    }
  }
  [[nodiscard]] constexpr bool Has(char byte) const {
    return isMember[static_cast<unsigned char>(byte)];
  }

 private:
  std::array<bool, 256> isMember = {};
};

// The minus sign is a token of its own that says nothing about a text's shape.
constexpr ByteSet kIdle(" \t\r\n-");
constexpr ByteSet kWordEnds(" \t\r\n\"'/{}[]:,=");

// Takes off `rest` what stands before the first byte that `ends` is true of.
template <typename Predicate>
std::string_view TakeUpTo(std::string_view* rest, Predicate ends) {
  const auto* const end = std::ranges::find_if(*rest, ends);
  const std::string_view taken = rest->substr(0, static_cast<std::size_t>(end - rest->begin()));
  rest->remove_prefix(taken.size());
  return taken;
}

// How many bytes certainly stand before the first quote or backslash. Whole blocks at once, which
// the compiler turns into vectors: byte by byte a long text takes a quarter of its parse.
std::size_t PlainBlocks(std::string_view text, char quote) {
  constexpr std::size_t kBlock = 64;
  std::size_t plain = 0;
  for (; text.size() - plain >= kBlock; plain += kBlock) {
    const char* const block = text.data() + plain;
    unsigned char stops = 0;
    for (std::size_t at = 0; at < kBlock; ++at) {
      stops |= static_cast<unsigned char>((block[at] == quote) | (block[at] == '\\'));
    }
    if (stops != 0) {
      break;
    }
  }
  return plain;
}

// What stands before the end of a string or its next escape. Only double quotes know escapes.
std::string_view TakePlainText(std::string_view* rest, char quote) {
  const std::string_view whole = *rest;
  rest->remove_prefix(PlainBlocks(*rest, quote));
  TakeUpTo(rest, [quote](char byte) { return byte == quote || (byte == '\\' && quote == '"'); });
  return whole.substr(0, whole.size() - rest->size());
}

// kEnd for a byte that is no symbol.
JsonTokenKind SymbolOf(char byte) {
  switch (byte) {
    case '{':
      return JsonTokenKind::kOpenObject;
    case '}':
      return JsonTokenKind::kCloseObject;
    case '[':
      return JsonTokenKind::kOpenArray;
    case ']':
      return JsonTokenKind::kCloseArray;
    case ':':
      return JsonTokenKind::kColon;
    case ',':
      return JsonTokenKind::kComma;
    case '=':
      return JsonTokenKind::kAssign;
    default:
      return JsonTokenKind::kEnd;
  }
}

// Takes the next byte off `rest`; at the end it is NUL, which no text holds.
char TakeByte(std::string_view* rest) {
  if (rest->empty()) {
    return '\0';
  }
  const char byte = rest->front();
  rest->remove_prefix(1);
  return byte;
}

// Up to four hexadecimal digits. A byte that is none is taken too and ends the number, which then
// lacks its last digits.
std::uint32_t TakeCodeUnit(std::string_view* rest) {
  std::uint32_t unit = 0;
  for (unsigned shift = 16; shift > 0;) {
    shift -= 4;
    const int digit = g_ascii_xdigit_value(TakeByte(rest));
    if (digit < 0) {
      break;
    }
    unit |= static_cast<std::uint32_t>(digit) << shift;
  }
  return unit;
}

bool IsSurrogate(std::uint32_t unit) {
  return unit >= 0xD800 && unit <= 0xDFFF;
}

// Takes the "\u" of a pair's second half, or the byte or two that show that there is none.
bool TakeUnicodeMark(std::string_view* rest) {
  if (TakeByte(rest) != '\\') {
    return false;
  }
  return TakeByte(rest) == 'u';
}

// What a surrogate stands for: with a second one behind it for a character, unless they do not fit;
// alone for itself.
std::optional<std::uint32_t> CompletePair(std::uint32_t first, std::string_view* rest) {
  if (!TakeUnicodeMark(rest)) {
    return first;
  }
  const std::uint32_t second = TakeCodeUnit(rest);
  if (first >= 0xDC00 || second < 0xDC00 || second > 0xDFFF) {
    return std::nullopt;
  }
  return 0x10000 + ((first & 0x3FF) << 10) + (second & 0x3FF);
}

// What follows "\u"; without a digit the escape stands for nothing.
bool AppendUnicodeEscape(std::string_view* rest, std::string* text) {
  if (rest->empty() || !g_ascii_isxdigit(rest->front())) {
    return true;
  }
  std::optional<std::uint32_t> character = TakeCodeUnit(rest);
  if (IsSurrogate(*character)) {
    character = CompletePair(*character, rest);
  }
  if (!character) {
    return false;
  }
  std::array<char, 6> bytes = {};
  const int length = g_unichar_to_utf8(*character, bytes.data());
  text->append(bytes.data(), static_cast<std::size_t>(length));
  return true;
}

bool IsOctal(char byte) {
  return byte >= '0' && byte <= '7';
}

// One to three digits, the first of which is there.
void AppendOctalEscape(std::string_view* rest, std::string* text) {
  constexpr int kMostDigits = 3;
  unsigned value = 0;
  for (int digit = 0; digit < kMostDigits && !rest->empty() && IsOctal(rest->front()); ++digit) {
    value = value * 8 + static_cast<unsigned>(g_ascii_digit_value(TakeByte(rest)));
  }
  text->push_back(static_cast<char>(value));
}

// What follows a backslash. False where the scanner gives up.
bool AppendEscape(std::string_view* rest, std::string* text) {
  constexpr std::string_view kLetters = "bfnrt";
  constexpr std::string_view kMeanings = "\b\f\n\r\t";
  if (!rest->empty() && IsOctal(rest->front())) {
    AppendOctalEscape(rest, text);
    return true;
  }
  const char letter = TakeByte(rest);
  if (letter == 'u') {
    return AppendUnicodeEscape(rest, text);
  }
  const std::size_t known = kLetters.find(letter);
  text->push_back(known == std::string_view::npos ? letter : kMeanings[known]);
  return true;
}

}  // namespace

JsonTokenKind JsonTokenReader::Next() {
  if (!SkipIdleText()) {
    return JsonTokenKind::kBroken;
  }
  if (rest.empty()) {
    return JsonTokenKind::kEnd;
  }
  const char first = rest.front();
  if (first == '"' || first == '\'') {
    return TakeString(first);
  }
  const JsonTokenKind symbol = SymbolOf(first);
  if (symbol == JsonTokenKind::kEnd) {
    return TakeWord();
  }
  rest.remove_prefix(1);
  return symbol;
}

// Blanks and comments; a comment runs from one slash to the next, whatever stands between them.
// False when a comment has no end.
bool JsonTokenReader::SkipIdleText() {
  for (;;) {
    TakeUpTo(&rest, [](char byte) { return !kIdle.Has(byte); });
    if (rest.empty() || rest.front() != kComment) {
      return true;
    }
    const std::size_t end = rest.find(kComment, 1);
    if (end == std::string_view::npos) {
      return false;
    }
    rest.remove_prefix(end + 1);
  }
}

JsonTokenKind JsonTokenReader::TakeString(char quote) {
  rest.remove_prefix(1);
  unescaped.clear();
  for (;;) {
    text = TakePlainText(&rest, quote);
    const char stop = TakeByte(&rest);
    if (stop != quote || !unescaped.empty()) {
      unescaped.append(text);
      text = unescaped;
    }
    if (stop == quote) {
      const std::size_t nul = text.find('\0');
      textWasCut = nul != std::string_view::npos;
      text = text.substr(0, nul);
      return JsonTokenKind::kString;
    }
    if (stop == '\0' || !AppendEscape(&rest, &unescaped)) {
      return JsonTokenKind::kBroken;
    }
  }
}

JsonTokenKind JsonTokenReader::TakeWord() {
  text = TakeUpTo(&rest, [](char byte) { return kWordEnds.Has(byte); });
  return JsonTokenKind::kWord;
}

}  // namespace quorvex::linux_service
