// SPDX-License-Identifier: Apache-2.0
#include "runtime/ground_record.h"

#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <sstream>
#include <string_view>

#include "runtime/constants.h"
#include "runtime/glib_ptr.h"
#include "runtime/private_files.h"

namespace quorvex::linux_service {
namespace {

constexpr std::string_view kEngineWord = "engine";
constexpr std::string_view kSettledLine = "settled";
constexpr std::string_view kLastLine = "whole";

struct List {
  std::string_view word;
  std::vector<std::string> GroundRecord::*entries;
};

constexpr std::array kLists = {
    List{"rule", &GroundRecord::rules},
    List{"route", &GroundRecord::routes},
    List{"table", &GroundRecord::tables},
    List{"server", &GroundRecord::servers},
    List{"added-rule", &GroundRecord::addedRules},
    List{"added-route", &GroundRecord::addedRoutes},
    List{"taken-route", &GroundRecord::takenRoutes},
};

std::string ToHexadecimal(const std::string& bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    text += kDigits[value >> 4U];
    text += kDigits[value & 0xfU];
  }
  return text;
}

std::optional<std::string> FromHexadecimal(std::string_view text) {
  std::string bytes;
  for (; text.size() >= 2; text.remove_prefix(2)) {
    std::uint8_t value = 0;
    const auto [rest, failure] = std::from_chars(text.data(), text.data() + 2, value, 16);
    if (failure != std::errc() || rest != text.data() + 2) {
      return std::nullopt;
    }
    bytes += static_cast<char>(value);
  }
  return text.empty() ? std::optional(bytes) : std::nullopt;
}

void AppendLines(std::string_view word, const std::vector<std::string>& entries,
                 std::string* text) {
  for (const std::string& entry : entries) {
    text->append(word).append(" ").append(ToHexadecimal(entry)).append("\n");
  }
}

bool ReadEngine(std::string_view text, EngineKind* engine) {
  std::uint32_t number = 0;
  const auto [rest, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
  *engine = static_cast<EngineKind>(number);
  return failure == std::errc() && rest == text.data() + text.size();
}

bool ReadLine(std::string_view line, GroundRecord* record) {
  if (line == kSettledLine) {
    record->isSettled = true;
    return true;
  }
  const std::size_t blank = line.find(' ');
  if (blank == std::string_view::npos) {
    return false;
  }
  const std::string_view word = line.substr(0, blank);
  const std::string_view value = line.substr(blank + 1);
  if (word == kEngineWord) {
    return ReadEngine(value, &record->engine);
  }
  const auto* list = std::ranges::find(kLists, word, &List::word);
  std::optional<std::string> bytes = FromHexadecimal(value);
  if (list == kLists.end() || !bytes) {
    return false;
  }
  (record->*(list->entries)).push_back(std::move(*bytes));
  return true;
}

bool GroundRecordExists() {
  struct stat status = {};
  return lstat(kGroundRecord, &status) == 0;
}

}  // namespace

std::string WriteGroundText(const GroundRecord& record) {
  std::string text;
  if (record.engine != EngineKind::kUnsupported) {
    const auto number = static_cast<std::uint32_t>(record.engine);
    text.append(kEngineWord).append(" ").append(std::to_string(number)).append("\n");
  }
  for (const List& list : kLists) {
    AppendLines(list.word, record.*(list.entries), &text);
  }
  if (record.isSettled) {
    text.append(kSettledLine).append("\n");
  }
  return text.append(kLastLine).append("\n");
}

std::optional<GroundRecord> ReadGroundText(const std::string& text) {
  std::optional<GroundRecord> whole;
  GroundRecord record;
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    if (line == kLastLine) {
      whole = record;
    } else if (!ReadLine(line, &record)) {
      break;
    }
  }
  return whole;
}

bool StoreGroundRecord(const GroundRecord& record, std::string* error) {
  return WritePrivateFile(kGroundRecord, WriteGroundText(record), error);
}

bool AppendGroundRecord(const GroundRecord& changes, std::string* error) {
  return AppendToPrivateFile(kGroundRecord, WriteGroundText(changes), error);
}

bool LoadGroundRecord(std::optional<GroundRecord>* record, std::string* error) {
  char* contents = nullptr;
  gsize size = 0;
  GErrorSlot failure;
  if (g_file_get_contents(kGroundRecord, &contents, &size, failure.Out()) == FALSE) {
    record->reset();
    *error = failure.MessageOr("");
    return failure.Matches(G_FILE_ERROR, G_FILE_ERROR_NOENT);
  }
  const GCharPtr owner(contents);
  *record = ReadGroundText(std::string(contents, size));
  return true;
}

bool RemoveGroundRecord(std::string* error) {
  const bool removed = !GroundRecordExists() || SecureRemoveFile(kGroundRecord, error);
  // systemd may have made the folder for us, and then keeps it.
  static_cast<void>(rmdir(kGroundDirectory));
  return removed;
}

}  // namespace quorvex::linux_service
