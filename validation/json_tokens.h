// SPDX-License-Identifier: Apache-2.0
//
// Cuts a JSON text into tokens exactly where json-glib's scanner does, which is not where the
// standard says: it knows comments and single quotes, and a broken escape swallows a quote.
#pragma once

#include <string>
#include <string_view>

namespace quorvex::linux_service {

enum class JsonTokenKind : char {
  kEnd,
  // The scanner gives up here: a string or a comment without its end, a broken surrogate pair.
  kBroken,
  kString,
  // A number, a name, or anything else that stands for itself.
  kWord,
  kOpenObject,
  kCloseObject,
  kOpenArray,
  kCloseArray,
  kColon,
  kComma,
  kAssign,
};

// Reads `json`, which must outlive the reader, from front to back.
class JsonTokenReader {
 public:
  explicit JsonTokenReader(std::string_view json) : rest(json) {}

  // The next token; kEnd for ever once the text is used up. Nothing is defined behind kBroken.
  [[nodiscard]] JsonTokenKind Next();

  // The last token's word as it is written, or what its string says, cut at the first NUL as
  // json-glib cuts it. Valid until the next call of Next.
  [[nodiscard]] std::string_view Text() const { return text; }

  // Whether the last token, a string, has no escape and no NUL.
  [[nodiscard]] bool TextIsVerbatim() const { return unescaped.empty() && !textWasCut; }

  // Whether the last token, a string, was cut at a NUL.
  [[nodiscard]] bool TextWasCut() const { return textWasCut; }

 private:
  [[nodiscard]] bool SkipIdleText();
  [[nodiscard]] JsonTokenKind TakeString(char quote);
  [[nodiscard]] JsonTokenKind TakeWord();

  std::string_view rest;
  std::string_view text;
  bool textWasCut = false;
  // The text of a string with escapes.
  std::string unescaped;
};

}  // namespace quorvex::linux_service
