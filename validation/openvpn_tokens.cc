// SPDX-License-Identifier: Apache-2.0
#include "validation/openvpn_tokens.h"

#include <algorithm>

#include "validation/rule_text.h"

namespace quorvex::linux_service {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

bool MayBeEscaped(char byte) {
  return byte == '\\' || byte == '"' || IsSpace(byte);
}

}  // namespace

bool OpenVpnWords::Split(std::string_view source, bool firstOfText) {
  count = used = 0;
  if (source.size() >= line.size()) {
    return false;
  }
  // The line feed matters: a backslash makes it a part of the last word.
  *std::ranges::copy(source, line.begin()).out = '\n';
  length = source.size() + 1;
  position = firstOfText && source.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
  while (count < words.size() && SkipToWord()) {
    const std::size_t start = used;
    if (!TakeWord()) {
      return false;
    }
    words[count++] = {text.data() + start, used - start};
  }
  if (count > 0 && words[0].size() > 2 && words[0].starts_with("--")) {
    words[0].remove_prefix(2);
  }
  return true;
}

// Whether there is another word. Between words a backslash hides nothing: "\ " is a blank and
// "\#" begins a comment.
bool OpenVpnWords::SkipToWord() {
  while (!AtEnd()) {
    const bool escaped = line[position] == '\\' && position + 1 < length;
    const std::size_t first = position + (escaped ? 1 : 0);
    if (!IsSpace(line[first])) {
      return line[first] != '#' && line[first] != ';';
    }
    position = first + 1;
  }
  return false;
}

bool OpenVpnWords::TakeWord() {
  switch (line[position]) {
    case '"':
      ++position;
      return TakeDoubleQuoted();
    case '\'':
      ++position;
      return TakeSingleQuoted();
    default:
      return TakePlain();
  }
}

// Behind a backslash.
bool OpenVpnWords::TakeEscaped() {
  if (AtEnd() || !MayBeEscaped(line[position])) {
    return false;
  }
  Keep(line[position++]);
  return true;
}

bool OpenVpnWords::TakeDoubleQuoted() {
  while (!AtEnd()) {
    const char byte = line[position++];
    if (byte == '"') {
      return true;
    }
    if (byte != '\\') {
      Keep(byte);
    } else if (!TakeEscaped()) {
      return false;
    }
  }
  return false;
}

bool OpenVpnWords::TakeSingleQuoted() {
  while (!AtEnd()) {
    const char byte = line[position++];
    if (byte == '\'') {
      return true;
    }
    Keep(byte);
  }
  return false;
}

// Up to a blank; quotes within are bytes like others.
bool OpenVpnWords::TakePlain() {
  while (!AtEnd() && !IsSpace(line[position])) {
    const char byte = line[position++];
    if (byte != '\\') {
      Keep(byte);
    } else if (!TakeEscaped()) {
      return false;
    }
  }
  return true;
}

bool ClosesOpenVpnBlock(std::string_view line, std::string_view closingTag) {
  for (; !line.empty(); line.remove_prefix(std::min(line.size(), kOpenVpnChunk))) {
    const std::string_view chunk = line.substr(0, kOpenVpnChunk);
    const auto* const start = std::ranges::find_if_not(chunk, IsSpace);
    if (chunk.substr(static_cast<std::size_t>(start - chunk.begin())).starts_with(closingTag)) {
      return true;
    }
  }
  return false;
}

}  // namespace quorvex::linux_service
