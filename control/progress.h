// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

namespace quorvex::control {

// Shows how something goes on. On a terminal the current stage stands in the last line with the
// seconds it takes; elsewhere each stage and note is a line. Silent for kNone.
class Progress {
 public:
  enum class Kind { kTerminal, kLines, kNone };

  explicit Progress(Kind shown) : kind(shown) {}

  void Stage(const std::string& stage);
  void Note(const std::string& text);
  // Renews the seconds.
  void Tick();
  // Leaves the last line, so that something else can be printed.
  void End();

 private:
  void Redraw();

  Kind kind;
  std::string stage;
  std::int64_t begun = 0;
};

// For a command: none with `--json`, else by what standard output is.
[[nodiscard]] Progress::Kind ProgressKind(bool json);

}  // namespace quorvex::control
