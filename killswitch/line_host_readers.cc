// SPDX-License-Identifier: Apache-2.0
#include <glib.h>

#include <algorithm>
#include <sstream>

#include "killswitch/host_readers.h"

namespace quorvex::linux_service {
namespace {

std::string LowercaseAscii(std::string text) {
  std::ranges::transform(text, text.begin(), [](char byte) { return g_ascii_tolower(byte); });
  return text;
}

// The host of "host:port", "[v6]:port" or a bare host. An IPv6 address without brackets is kept
// whole: where its port would begin cannot be told.
std::string HostOfEndpoint(const std::string& value) {
  if (value.starts_with('[')) {
    const std::size_t end = value.find(']');
    return end == std::string::npos ? std::string() : value.substr(1, end - 1);
  }
  const bool oneColon = std::ranges::count(value, ':') == 1;
  return oneColon ? value.substr(0, value.find(':')) : value;
}

void AddWireGuardLine(const std::string& line, HostList* hosts) {
  const std::size_t equals = line.find('=');
  if (equals != std::string::npos &&
      LowercaseAscii(TrimAscii(line.substr(0, equals))) == "endpoint") {
    AddHost(hosts, HostOfEndpoint(TrimAscii(line.substr(equals + 1))));
  }
}

void AddOpenVpnLine(const std::string& line, HostList* hosts) {
  std::istringstream words(line);
  std::string directive;
  std::string host;
  words >> directive >> host;
  if (LowercaseAscii(directive) == "remote") {
    AddHost(hosts, host);
  }
}

template <typename LineReader>
void ReadLines(const std::string& configuration, LineReader addLine, HostList* hosts) {
  std::istringstream lines(configuration);
  for (std::string text; std::getline(lines, text);) {
    const std::string line = TrimAscii(text);
    if (!line.empty() && !line.starts_with('#') && !line.starts_with(';')) {
      addLine(line, hosts);
    }
  }
}

}  // namespace

void ReadWireGuardHosts(const std::string& configuration, HostList* hosts) {
  ReadLines(configuration, AddWireGuardLine, hosts);
}

void ReadOpenVpnHosts(const std::string& configuration, HostList* hosts) {
  ReadLines(configuration, AddOpenVpnLine, hosts);
}

}  // namespace quorvex::linux_service
