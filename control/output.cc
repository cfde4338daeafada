// SPDX-License-Identifier: Apache-2.0
#include "control/output.h"

#include <glib-unix.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "control/exit_codes.h"
#include "control/json_text.h"
#include "runtime/glib_ptr.h"

namespace quorvex::control {
namespace {

using DateTimePtr = std::unique_ptr<GDateTime, ReleaseWith<g_date_time_unref>>;

constexpr std::int64_t kMinute = 60;
constexpr std::int64_t kHour = 60 * kMinute;
constexpr std::int64_t kDay = 24 * kHour;

bool Write(std::FILE* stream, const std::string& text) {
  return std::fwrite(text.data(), 1, text.size(), stream) == text.size() &&
         std::fflush(stream) == 0;
}

std::string TwoUnits(std::int64_t value, std::int64_t large, const char* largeName,
                     std::int64_t small, const char* smallName) {
  return std::to_string(value / large) + " " + largeName + " " +
         std::to_string(value % large / small) + " " + smallName;
}

}  // namespace

void Print(const std::string& text) {
  if (Write(stdout, text)) {
    return;
  }
  // Whoever closed our output has read enough; a full disk is told.
  if (errno != EPIPE) {
    std::perror("quorvexvpnctl");
  }
  std::exit(kExitFailure);
}

void EndWithReader() {
  const auto end = [](int, GIOCondition, gpointer) -> gboolean { std::exit(kExitFailure); };
  g_unix_fd_add(STDOUT_FILENO, static_cast<GIOCondition>(G_IO_ERR | G_IO_HUP), end, nullptr);
}

void Complain(const std::string& line) {
  // There is nobody left to tell.
  static_cast<void>(Write(stderr, line));
}

std::string FailureText(const Failure& failure) {
  const std::string hint = failure.hint.empty() ? "" : "  " + failure.hint + "\n";
  return "quorvexvpnctl: " + Printable(failure.message) + "\n" + hint;
}

std::string FailureJson(const Failure& failure) {
  return JsonText()
      .String("error", failure.message)
      .StringOrNull("hint", failure.hint)
      .Integer("exitCode", failure.exitCode)
      .End();
}

int Report(const Failure& failure, bool json) {
  if (json) {
    Print(FailureJson(failure) + "\n");
  } else {
    Complain(FailureText(failure));
  }
  return failure.exitCode;
}

std::string LocalTime(std::int64_t epochMillis, const char* format) {
  const DateTimePtr time(g_date_time_new_from_unix_local(epochMillis / 1000));
  return time != nullptr ? GCharPtr(g_date_time_format(time.get(), format)).get() : "?";
}

std::string IsoTime(std::int64_t epochMillis) {
  const DateTimePtr time(g_date_time_new_from_unix_utc(epochMillis / 1000));
  return time != nullptr ? GCharPtr(g_date_time_format_iso8601(time.get())).get() : "";
}

std::string DurationText(std::int64_t seconds) {
  if (seconds < kMinute) {
    return std::to_string(std::max<std::int64_t>(seconds, 0)) + " s";
  }
  if (seconds < kHour) {
    return TwoUnits(seconds, kMinute, "min", 1, "s");
  }
  return seconds < kDay ? TwoUnits(seconds, kHour, "h", kMinute, "min")
                        : TwoUnits(seconds, kDay, "d", kHour, "h");
}

std::string Printable(const std::string& text) {
  const GCharPtr valid(g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
  std::string harmless;
  const char* next = nullptr;
  for (const char* at = valid.get(); *at != '\0'; at = next) {
    next = g_utf8_next_char(at);
    // Neither controls, of which there are some beyond ASCII, nor marks that turn the text around.
    const bool isPrinted = g_unichar_isprint(g_utf8_get_char(at)) != FALSE;
    harmless.append(isPrinted ? std::string(at, next) : "?");
  }
  return harmless;
}

}  // namespace quorvex::control
