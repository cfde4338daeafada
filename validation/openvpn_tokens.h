// SPDX-License-Identifier: Apache-2.0
//
// Cuts a configuration text into lines, chunks and words where OpenVPN's own reader cuts it.
// Measured against OpenVPN 2.6.14.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace quorvex::linux_service {

// OpenVPN refuses a longer directive line, its line feed included.
inline constexpr std::size_t kLongestOpenVpnLine = 255;

// Inline data is read in pieces of this size at most.
inline constexpr std::size_t kOpenVpnChunk = 255;

// The words of one directive line.
class OpenVpnWords {
 public:
  OpenVpnWords() = default;
  OpenVpnWords(const OpenVpnWords&) = delete;
  OpenVpnWords& operator=(const OpenVpnWords&) = delete;
  ~OpenVpnWords() = default;

  // Splits a line, given without its line feed: quotes and backslashes are taken off, and so are
  // the words behind the sixteenth, "--" before the first, and a byte order mark if the line is the
  // first of its text. No words: an empty line or a comment. False when OpenVPN refuses the line
  // (too long, open quote, stray backslash).
  [[nodiscard]] bool Split(std::string_view line, bool firstOfText);

  [[nodiscard]] std::size_t Count() const { return count; }
  // Valid until the next call of Split.
  [[nodiscard]] std::string_view operator[](std::size_t index) const { return words[index]; }

 private:
  [[nodiscard]] bool SkipToWord();
  [[nodiscard]] bool TakeWord();
  [[nodiscard]] bool TakeEscaped();
  [[nodiscard]] bool TakeDoubleQuoted();
  [[nodiscard]] bool TakeSingleQuoted();
  [[nodiscard]] bool TakePlain();
  [[nodiscard]] bool AtEnd() const { return position == length; }
  void Keep(char byte) { text[used++] = byte; }

  std::array<char, kLongestOpenVpnLine> line = {};
  std::size_t length = 0;
  std::size_t position = 0;
  // The words' bytes; together they are never longer than the line.
  std::array<char, kLongestOpenVpnLine> text = {};
  std::size_t used = 0;
  std::array<std::string_view, 16> words;
  std::size_t count = 0;
};

// Whether OpenVPN ends an inline block at this line of it, given without its line feed: it reads
// lines in pieces and looks for the tag at the beginning of each, behind blanks; what follows the
// tag does not matter to it.
[[nodiscard]] bool ClosesOpenVpnBlock(std::string_view line, std::string_view closingTag);

}  // namespace quorvex::linux_service
