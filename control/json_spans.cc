// SPDX-License-Identifier: Apache-2.0
#include "control/json_spans.h"

#include "control/option_names.h"

namespace quorvex::control {
namespace {

constexpr unsigned kDeepest = 64;
constexpr std::string_view kIdle = " \t\r\n";
constexpr std::string_view kEndsWord = " \t\r\n,]}";

class SpanReader {
 public:
  explicit SpanReader(std::string_view text) : json(text) {}

  [[nodiscard]] bool ReadAll() {
    if (!ReadValue("", 0)) {
      return false;
    }
    SkipIdle();
    return position == json.size();
  }
  [[nodiscard]] std::vector<JsonSpan> Take() { return std::move(spans); }

 private:
  void SkipIdle() {
    const std::size_t next = json.find_first_not_of(kIdle, position);
    position = next == std::string_view::npos ? json.size() : next;
  }
  [[nodiscard]] bool TakeByte(char wanted) {
    SkipIdle();
    if (position == json.size() || json[position] != wanted) {
      return false;
    }
    ++position;
    return true;
  }
  [[nodiscard]] bool ReadValue(const std::string& path, unsigned depth);
  [[nodiscard]] bool ReadContainer(const std::string& path, unsigned depth, bool object);
  [[nodiscard]] bool ReadEntry(const std::string& path, unsigned depth, bool object,
                               std::size_t index);
  [[nodiscard]] bool ReadString(std::string_view* text);
  [[nodiscard]] bool ReadWord();
  void SetCuts(const std::vector<std::size_t>& entries);

  std::string_view json;
  std::size_t position = 0;
  std::vector<JsonSpan> spans;
};

bool SpanReader::ReadValue(const std::string& path, unsigned depth) {
  SkipIdle();
  if (position == json.size() || depth > kDeepest) {
    return false;
  }
  switch (json[position]) {
    case '{':
      return ReadContainer(path, depth, true);
    case '[':
      return ReadContainer(path, depth, false);
    case '"': {
      std::string_view text;
      return ReadString(&text);
    }
    default:
      return ReadWord();
  }
}

bool SpanReader::ReadContainer(const std::string& path, unsigned depth, bool object) {
  const char close = object ? '}' : ']';
  ++position;
  std::vector<std::size_t> entries;
  if (TakeByte(close)) {
    return true;
  }
  do {
    if (!ReadEntry(path, depth, object, entries.size())) {
      return false;
    }
    entries.push_back(spans.size() - 1);
  } while (TakeByte(','));
  SetCuts(entries);
  return TakeByte(close);
}

bool SpanReader::ReadEntry(const std::string& path, unsigned depth, bool object,
                           std::size_t index) {
  SkipIdle();
  JsonSpan span;
  span.begin = position;
  span.depth = depth + 1;
  span.path = path + "[" + std::to_string(index) + "]";
  if (object) {
    std::string_view name;
    if (!ReadString(&name) || !TakeByte(':')) {
      return false;
    }
    span.path = path + (path.empty() ? "" : ".") + (IsJsonName(name) ? std::string(name) : "?");
  }
  if (!ReadValue(span.path, depth + 1)) {
    return false;
  }
  span.end = position;
  spans.push_back(std::move(span));
  return true;
}

bool SpanReader::ReadString(std::string_view* text) {
  if (!TakeByte('"')) {
    return false;
  }
  const std::size_t begin = position;
  while (position < json.size() && json[position] != '"') {
    position += json[position] == '\\' ? 2U : 1U;
  }
  if (position >= json.size()) {
    return false;
  }
  *text = json.substr(begin, position - begin);
  ++position;
  return true;
}

bool SpanReader::ReadWord() {
  const std::size_t begin = position;
  const std::size_t end = json.find_first_of(kEndsWord, position);
  position = end == std::string_view::npos ? json.size() : end;
  return position > begin;
}

void SpanReader::SetCuts(const std::vector<std::size_t>& entries) {
  for (std::size_t index = 0; index < entries.size(); ++index) {
    JsonSpan& span = spans[entries[index]];
    const bool last = index + 1 == entries.size();
    span.cutBegin = last && index > 0 ? spans[entries[index - 1]].end : span.begin;
    span.cutEnd = last ? span.end : spans[entries[index + 1]].begin;
  }
}

}  // namespace

std::vector<JsonSpan> ReadJsonSpans(std::string_view json) {
  SpanReader reader(json);
  return reader.ReadAll() ? reader.Take() : std::vector<JsonSpan>();
}

}  // namespace quorvex::control
