// SPDX-License-Identifier: Apache-2.0
#include "runtime/line_servers.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "runtime/server_look_up.h"
#include "validation/openvpn_tokens.h"
#include "validation/rule_text.h"

namespace quorvex::linux_service {
namespace {

constexpr std::array<std::string_view, 3> kServerDirectives = {"remote", "http-proxy",
                                                               "socks-proxy"};

// Leaves `text` behind the block's end.
void SkipBlock(std::string_view tag, std::string_view* text) {
  const std::string closingTag = "</" + std::string(tag.substr(1));
  while (!text->empty() && !ClosesOpenVpnBlock(TakeLine(text), closingTag)) {
  }
}

bool OpensBlock(const OpenVpnWords& words) {
  return words.Count() == 1 && words[0].starts_with('<') && words[0].ends_with('>');
}

bool NamesServer(const OpenVpnWords& words) {
  return words.Count() > 1 &&
         std::ranges::find(kServerDirectives, words[0]) != kServerDirectives.end();
}

}  // namespace

std::vector<std::string> WireGuardServerHosts(const std::string& configuration) {
  UniqueTexts hosts;
  for (std::string_view text = configuration; !text.empty();) {
    const std::string_view line = TakeLine(&text);
    const std::string_view content = line.substr(0, line.find('#'));
    const std::size_t equals = content.find('=');
    if (equals != std::string_view::npos &&
        EqualsIgnoringCase(Trim(content.substr(0, equals)), "endpoint")) {
      AddServerHost(HostOfEndpoint(Trim(content.substr(equals + 1))), &hosts);
    }
  }
  return std::move(hosts).Take();
}

std::vector<std::string> OpenVpnServerHosts(const std::string& configuration) {
  UniqueTexts hosts;
  OpenVpnWords words;
  bool first = true;
  for (std::string_view text = configuration; !text.empty(); first = false) {
    if (!words.Split(TakeLine(&text), first)) {
      continue;
    }
    if (OpensBlock(words)) {
      SkipBlock(words[0], &text);
    } else if (NamesServer(words)) {
      AddServerHost(std::string(words[1]), &hosts);
    }
  }
  return std::move(hosts).Take();
}

}  // namespace quorvex::linux_service
