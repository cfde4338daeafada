// SPDX-License-Identifier: Apache-2.0
#include "runtime/openvpn_config.h"

#include <algorithm>
#include <string_view>

#include "runtime/constants.h"
#include "validation/rule_text.h"

namespace quorvex::linux_service {
namespace {

constexpr std::string_view kWhitespace = " \t\n\v\f\r";
constexpr std::string_view kDirective = "dev ";

// No lower-case copies below: the lines that are compared may hold keys.

// The name of the inline block that a trimmed line opens; empty for any other line.
std::string_view OpenedBlock(std::string_view line) {
  const bool opens =
      line.size() >= 3 && line.starts_with('<') && line.ends_with('>') && line[1] != '/';
  return opens ? line.substr(1, line.size() - 2) : std::string_view();
}

bool ClosesBlock(std::string_view line, std::string_view name) {
  return line.size() == name.size() + 3 && line.starts_with("</") && line.ends_with('>') &&
         EqualsIgnoringCase(line.substr(2, name.size()), name);
}

bool NamesDevice(std::string_view line) {
  const std::string_view word = line.substr(0, line.find_first_of(kWhitespace));
  return EqualsIgnoringCase(word, "dev") || EqualsIgnoringCase(word, "--dev");
}

// What the text can grow to, at most, if every line is replaced: reserved, it leaves no copies.
std::size_t RewrittenSizeLimit(const std::string& configuration) {
  const auto lines = static_cast<std::size_t>(std::ranges::count(configuration, '\n')) + 1;
  return configuration.size() + lines * (kDirective.size() + sizeof(kOpenVpnInterface));
}

}  // namespace

std::string RewriteOpenVpnConfig(const std::string& configuration) {
  std::string rewritten;
  rewritten.reserve(RewrittenSizeLimit(configuration));
  std::string_view block;
  for (std::string_view rest = configuration; !rest.empty();) {
    const std::string_view line = TakeLine(&rest);
    const std::string_view trimmed = Trim(line);
    if (!block.empty()) {
      block = ClosesBlock(trimmed, block) ? std::string_view() : block;
      rewritten.append(line);
    } else if (block = OpenedBlock(trimmed); block.empty() && NamesDevice(trimmed)) {
      rewritten.append(kDirective).append(kOpenVpnInterface);
    } else {
      rewritten.append(line);
    }
    rewritten.push_back('\n');
  }
  return rewritten;
}

}  // namespace quorvex::linux_service
