// SPDX-License-Identifier: Apache-2.0
#include "control/progress.h"

#include <glib.h>
#include <unistd.h>

#include "control/output.h"

namespace quorvex::control {
namespace {

constexpr const char* kClearLine = "\r\033[K";

}  // namespace

Progress::Kind ProgressKind(bool json) {
  if (json) {
    return Progress::Kind::kNone;
  }
  return isatty(STDOUT_FILENO) == 1 ? Progress::Kind::kTerminal : Progress::Kind::kLines;
}

void Progress::Stage(const std::string& next) {
  if (kind == Kind::kLines) {
    Print(next + "\n");
  }
  stage = next;
  begun = g_get_monotonic_time();
  Redraw();
}

void Progress::Note(const std::string& text) {
  if (kind != Kind::kNone) {
    Print((kind == Kind::kTerminal ? kClearLine : "") + ("  " + text) + "\n");
  }
  Redraw();
}

void Progress::Tick() {
  Redraw();
}

void Progress::End() {
  if (kind == Kind::kTerminal && !stage.empty()) {
    Print(kClearLine);
  }
  stage.clear();
}

void Progress::Redraw() {
  if (kind == Kind::kTerminal && !stage.empty()) {
    const std::int64_t seconds = (g_get_monotonic_time() - begun) / G_USEC_PER_SEC;
    const std::string waited = seconds > 0 ? " " + std::to_string(seconds) + " s" : "";
    Print(kClearLine + stage + " ..." + waited);
  }
}

}  // namespace quorvex::control
