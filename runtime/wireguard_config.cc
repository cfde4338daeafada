// SPDX-License-Identifier: Apache-2.0
#include "runtime/wireguard_config.h"

#include <algorithm>
#include <cctype>
#include <string_view>

#include "runtime/command_runner.h"

namespace quorvex::linux_service {
namespace {

constexpr std::string_view kWhitespace = " \t\n\v\f\r";

std::string TrimmedLowercase(std::string_view text) {
  std::string result = TrimWhitespace(std::string(text));
  std::ranges::transform(result, result.begin(),
                         [](unsigned char byte) { return static_cast<char>(std::tolower(byte)); });
  return result;
}

// The next line without its newline, which is taken off `rest` with it.
std::string_view TakeLine(std::string_view* rest) {
  const std::size_t end = rest->find('\n');
  const std::string_view line = rest->substr(0, end);
  rest->remove_prefix(end == std::string_view::npos ? rest->size() : end + 1);
  return line;
}

// A section header, trimmed and in lower case; empty for any other line. Only lines that begin like
// one are copied: the others may hold keys.
std::string Header(std::string_view line) {
  const std::size_t first = line.find_first_not_of(kWhitespace);
  if (first == std::string_view::npos || line[first] != '[') {
    return {};
  }
  std::string header = TrimmedLowercase(line);
  return header.ends_with(']') ? header : std::string();
}

// Where the value of a "DNS = ..." line begins; npos for any other line.
std::size_t DnsValueOffset(std::string_view line) {
  const std::size_t equals = line.find('=');
  if (equals == std::string_view::npos || TrimmedLowercase(line.substr(0, equals)) != "dns") {
    return std::string_view::npos;
  }
  return equals + 1;
}

// Empty pieces are kept: a trailing comma gives an empty entry.
void AppendServers(std::string_view value, std::vector<std::string>* servers) {
  for (std::size_t comma = value.find(','); comma != std::string_view::npos;
       comma = value.find(',')) {
    servers->push_back(TrimWhitespace(std::string(value.substr(0, comma))));
    value.remove_prefix(comma + 1);
  }
  servers->push_back(TrimWhitespace(std::string(value)));
}

}  // namespace

WireGuardRewrite RewriteWireGuardConfig(const std::string& config) {
  WireGuardRewrite rewrite;
  // One allocation, so that growing leaves no copies of the key behind.
  rewrite.text.reserve(config.size() + 1);
  bool inInterface = false;
  for (std::string_view rest = config; !rest.empty();) {
    const std::string_view line = TakeLine(&rest);
    if (const std::string header = Header(line); !header.empty()) {
      inInterface = header == "[interface]";
    } else if (const std::size_t value = DnsValueOffset(line);
               inInterface && value != std::string_view::npos) {
      AppendServers(line.substr(value), &rewrite.dnsServers);
      continue;
    }
    rewrite.text.append(line).push_back('\n');
  }
  return rewrite;
}

}  // namespace quorvex::linux_service
