// SPDX-License-Identifier: Apache-2.0
#include "validation/openvpn_second_reading.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <optional>
#include <string_view>

#include "validation/openvpn_options.h"
#include "validation/openvpn_sentences.h"
#include "validation/openvpn_tokens.h"
#include "validation/rule_text.h"

namespace quorvex::linux_service {
namespace {

using Complaint = std::optional<const char*>;

// For the connecting side; the others listen.
constexpr std::array<std::string_view, 9> kClientProtocols = {
    "udp", "udp4", "udp6", "tcp", "tcp4", "tcp6", "tcp-client", "tcp4-client", "tcp6-client",
};

// Whether the service replaces the line by one with its own device.
bool IsReplaced(std::string_view trimmedLine) {
  trimmedLine.remove_prefix(trimmedLine.starts_with("--") ? 2 : 0);
  const std::string_view behind = trimmedLine.substr(std::min<std::size_t>(trimmedLine.size(), 3));
  return EqualsIgnoringCase(trimmedLine.substr(0, 3), "dev") &&
         (behind.empty() || IsSpace(behind.front()));
}

// The word at `index`, or nothing.
std::string_view WordOr(const OpenVpnWords& words, std::size_t index) {
  return index < words.Count() ? words[index] : std::string_view();
}

// Whether the rules, which know neither quotes nor a byte order mark, saw the same name.
bool IsWrittenPlainly(std::string_view trimmedLine, std::string_view name) {
  trimmedLine.remove_prefix(trimmedLine.starts_with("--") ? 2 : 0);
  const std::string_view behind = trimmedLine.substr(std::min(trimmedLine.size(), name.size()));
  return trimmedLine.starts_with(name) && (behind.empty() || IsSpace(behind.front()));
}

Complaint CheckDeviceType(const OpenVpnWords& words) {
  const bool isTun = LowercaseAscii(WordOr(words, 1)).starts_with("tun");
  return isTun ? Complaint() : Complaint(kOpenVpnIncomplete);
}

Complaint CheckProtocol(const OpenVpnWords& words, std::size_t index) {
  const bool isClient = index >= words.Count() ||
                        std::ranges::find(kClientProtocols, words[index]) != kClientProtocols.end();
  return isClient ? Complaint() : Complaint(kOpenVpnIncomplete);
}

Complaint CheckMaterial(const OpenVpnWords& words) {
  const bool namesFile = words.Count() > 2 || (words.Count() == 2 && words[1] != "[inline]");
  return namesFile ? Complaint(kOpenVpnNotEmbedded) : Complaint();
}

// In any letter case, like the rules: AUTO is a file to OpenVPN, but one in a folder of root's in
// which there is none.
Complaint CheckHttpProxy(const OpenVpnWords& words) {
  const std::string method = LowercaseAscii(WordOr(words, 3));
  const bool namesFile = words.Count() > 3 && method != "auto" && method != "auto-nct";
  return namesFile ? Complaint(kOpenVpnProxyCredentials) : Complaint();
}

// Reads a profile once, top to bottom. Where it succeeds, OpenVPN, the rules and the service's
// rewriting agree on where every inline block begins and ends.
class SecondReader {
 public:
  explicit SecondReader(std::string_view text) : rest(text) {}
  [[nodiscard]] Complaint Read();

 private:
  [[nodiscard]] Complaint ReadLine(std::string_view line, bool firstOfText);
  [[nodiscard]] Complaint ReadBlock(std::string_view openingLine);
  [[nodiscard]] Complaint SkipBlock(std::string_view closingTag);
  [[nodiscard]] bool EndsInBlock(std::string_view closingTag);
  [[nodiscard]] Complaint ReadOption();
  [[nodiscard]] Complaint CheckArguments(OpenVpnArguments kind);
  [[nodiscard]] bool IsIgnored() const;
  [[nodiscard]] Complaint TakeIgnoredNames();

  std::string_view rest;
  OpenVpnWords words;
  std::bitset<kIgnorableOpenVpnOptions> ignored;
  bool clientMode = false;
  bool hasRemote = false;
  // OpenVPN reads no further than to a block that is already read.
  bool foundNoEnd = false;
};

Complaint SecondReader::Read() {
  for (bool first = true; !rest.empty(); first = false) {
    if (const Complaint complaint = ReadLine(TakeLine(&rest), first)) {
      return complaint;
    }
  }
  return clientMode && hasRemote ? Complaint() : Complaint(kOpenVpnIncomplete);
}

Complaint SecondReader::ReadLine(std::string_view line, bool firstOfText) {
  const std::string_view trimmed = Trim(line);
  if ((IsBlankOrComment(trimmed) && line.size() < kLongestOpenVpnLine) || IsReplaced(trimmed)) {
    return {};
  }
  if (!words.Split(line, firstOfText)) {
    return kOpenVpnForbidden;
  }
  if (words.Count() == 0) {
    return {};
  }
  const bool opensBlock =
      words.Count() == 1 && words[0].starts_with('<') && words[0].ends_with('>');
  if (opensBlock) {
    return ReadBlock(trimmed);
  }
  if (const Complaint complaint = ReadOption()) {
    return complaint;
  }
  return IsWrittenPlainly(trimmed, words[0]) ? Complaint() : Complaint(kOpenVpnForbidden);
}

// Only what all three readers open alike: not `--<ca>`, not `"<ca>"`, nothing behind the tag.
Complaint SecondReader::ReadBlock(std::string_view openingLine) {
  const std::string_view name = words[0].substr(1, words[0].size() - 2);
  const OpenVpnOption* option = FindOpenVpnOption(LowercaseAscii(name));
  if (openingLine != words[0] || !option || option->arguments != OpenVpnArguments::kMaterial) {
    return kOpenVpnUnsupportedBlock;
  }
  return SkipBlock("</" + std::string(name) + ">");
}

Complaint SecondReader::SkipBlock(std::string_view closingTag) {
  while (!rest.empty()) {
    const std::string_view line = TakeLine(&rest);
    const bool closes = ClosesOpenVpnBlock(line, closingTag);
    const bool closesForTheRules = EqualsIgnoringCase(Trim(line), closingTag);
    if (closes && !closesForTheRules) {
      return kOpenVpnUnmatchedBlock;
    }
    if (closesForTheRules) {
      return closes || EndsInBlock(closingTag) ? Complaint() : Complaint(kOpenVpnUnterminatedBlock);
    }
  }
  return kOpenVpnUnterminatedBlock;
}

// Whether OpenVPN, for which this block goes on, finds no end to it at all. Then it does nothing
// with the profile but refuse it, and an end in other letters may pass, as it does by the rules.
bool SecondReader::EndsInBlock(std::string_view closingTag) {
  for (std::string_view later = rest; !foundNoEnd && !later.empty();) {
    if (ClosesOpenVpnBlock(TakeLine(&later), closingTag)) {
      return false;
    }
  }
  foundNoEnd = true;
  return true;
}

// Names count in any letter case, as the rules take them: OpenVPN ends at one in capitals, so no
// harm comes of it.
Complaint SecondReader::ReadOption() {
  const OpenVpnOption* option = FindOpenVpnOption(words[0]);
  if (!option && IsIgnored()) {
    return {};
  }
  option = option ? option : FindOpenVpnOption(LowercaseAscii(words[0]));
  if (!option) {
    return kOpenVpnForbidden;
  }
  if (const Complaint complaint = CheckArguments(option->arguments)) {
    return complaint;
  }
  const std::size_t arguments = words.Count() - 1;
  if (arguments < option->least || arguments > option->most) {
    return kOpenVpnForbidden;
  }
  clientMode = clientMode || option->name == "client";
  hasRemote = hasRemote || option->name == "remote";
  return {};
}

Complaint SecondReader::CheckArguments(OpenVpnArguments kind) {
  switch (kind) {
    case OpenVpnArguments::kHarmless:
      return {};
    case OpenVpnArguments::kDevice:
      return kOpenVpnIncomplete;
    case OpenVpnArguments::kDeviceType:
      return CheckDeviceType(words);
    case OpenVpnArguments::kProtocol:
      return CheckProtocol(words, 1);
    case OpenVpnArguments::kRemote:
      return CheckProtocol(words, 3);
    case OpenVpnArguments::kMaterial:
      return CheckMaterial(words);
    case OpenVpnArguments::kHttpProxy:
      return CheckHttpProxy(words);
    case OpenVpnArguments::kSocksProxy:
      return words.Count() > 3 ? Complaint(kOpenVpnNotEmbedded) : Complaint();
    case OpenVpnArguments::kAnyPort:
      return WordOr(words, 1) == "0" ? Complaint() : Complaint(kOpenVpnForbidden);
    case OpenVpnArguments::kIgnoredNames:
      return TakeIgnoredNames();
  }
  return kOpenVpnForbidden;
}

bool SecondReader::IsIgnored() const {
  const std::size_t index = IndexOfIgnorableOpenVpnOption(words[0]);
  return index < ignored.size() && ignored[index];
}

// From here on: OpenVPN ends at such an option above this line. The names of options that it does
// know hide nothing, for those are read all the same.
Complaint SecondReader::TakeIgnoredNames() {
  for (std::size_t word = 1; word < words.Count(); ++word) {
    std::string_view name = words[word];
    name.remove_prefix(name.starts_with("--") ? 2 : 0);
    const std::size_t index = IndexOfIgnorableOpenVpnOption(name);
    if (index < ignored.size()) {
      ignored.set(index);
    } else if (!FindOpenVpnOption(name)) {
      return kOpenVpnForbidden;
    }
  }
  return {};
}

}  // namespace

ValidationResult ValidateAsOpenVpnReads(const std::string& rawConfig) {
  const Complaint complaint = SecondReader(rawConfig).Read();
  return complaint ? Invalid(*complaint) : Valid();
}

}  // namespace quorvex::linux_service
