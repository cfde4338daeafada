// SPDX-License-Identifier: Apache-2.0
//
// How long validation of the largest profiles takes: for the JSON engines beside the parse alone,
// below which nothing can go. Prints the best of several rounds; judges nothing.
#include <json-glib/json-glib.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <functional>
#include <string>

#include "runtime/glib_ptr.h"
#include "validation/profile_validation.h"

namespace quorvex::linux_service {
namespace {

constexpr std::size_t kLargest = 2097152;

// The best of so many rounds, in milliseconds of this process's own time.
double BestTime(const std::function<void()>& measured) {
  constexpr int kRounds = 7;
  double best = 1e9;
  for (int round = 0; round < kRounds; ++round) {
    const std::clock_t start = std::clock();
    measured();
    const auto time = static_cast<double>(std::clock() - start);
    best = std::min(best, time * 1000 / CLOCKS_PER_SEC);
  }
  return best;
}

double ParseTime(const std::string& text) {
  return BestTime([&text] {
    const GObjectPtr<JsonParser> parser(json_parser_new());
    json_parser_load_from_data(parser.get(), text.data(), static_cast<gssize>(text.size()),
                               nullptr);
  });
}

// `head`, as many of `part` as fit, and `tail`.
std::string Largest(const std::string& head, const std::string& part, const std::string& tail) {
  std::string text = head;
  text.reserve(kLargest);
  while (text.size() + part.size() + tail.size() <= kLargest) {
    text += part;
  }
  return text + tail;
}

void Report(const char* name, const std::string& protocol, const std::string& text, bool isJson) {
  ValidationResult verdict;
  const double all = BestTime([&] { verdict = ValidateProfile("measured", protocol, text); });
  std::printf("%-44s %7.1f ms", name, all);
  if (isJson) {
    const double parse = ParseTime(text);
    std::printf(", parse alone %7.1f ms, ratio %.2f", parse, all / parse);
  }
  std::printf("  %s\n", verdict.valid ? "accepted" : verdict.message.c_str());
}

// Long enough that the largest profile stays within the limit of nodes.
const std::string kWord = "a-name-that-is-as-long-as-many-a-token-of-a-real-provider-0123456789";

void ReportSingBox() {
  const std::string outbound = R"({"type": "vless", "tag": ")" + kWord + kWord +
                               R"(", "server": "198.51.100.8",
 "server_port": 443, "uuid": "5a1f5e0e-6d2b-4c52-9a55-0b0f7f7f3c11", "tls": {"enabled": true,
 "server_name": "a.test"}, "transport": {"type": "ws", "path": "/)" +
                               kWord + R"(", "headers": {"Host": "cdn.test"}}})";
  const std::string head = R"({"dns": {"servers": [{"type": "https", "server": "1.1.1.1"}]},
 "inbounds": [{"type": "tun", "auto_route": true}], "outbounds": [)";
  Report("sing-box, thousands of outbounds", "vless",
         Largest(head + outbound, "," + outbound, "]}"), true);
  Report("sing-box, one long text", "vless",
         Largest(head + outbound + R"(], "comment": ")", "some words and more ", "\"}"), true);
  Report(
      "sing-box, names of many domains", "vless",
      Largest(head + outbound + R"(], "route": {"rule_set": [{"tag": "a", "rules": [{"domain": [")",
              kWord + R"(", ")", R"("]}]}]}})"),
      true);
}

void ReportXray() {
  const std::string outbound = R"({"protocol": "vless", "tag": ")" + kWord + kWord +
                               R"(", "settings": {"vnext": [
 {"address": "198.51.100.8", "port": 443, "users": [{"id": "5a1f5e0e-6d2b-4c52-9a55-0b0f7f7f3c11",
 "encryption": "none"}]}]}, "streamSettings": {"network": "tcp", "security": "tls",
 "tlsSettings": {"serverName": ")" +
                               kWord + R"("}}})";
  Report("Xray, thousands of outbounds", "xray",
         Largest(R"({"inbounds": [{"protocol": "tun"}], "outbounds": [)" + outbound, "," + outbound,
                 "]}"),
         true);
}

void ReportTextProfiles() {
  Report("WireGuard, thousands of peers", "wireguard",
         Largest("[Interface]\nPrivateKey = cHJpdmF0ZQ==\nAddress = 10.0.0.2/32\nDNS = 1.1.1.1\n",
                 "[Peer]\nPublicKey = cHVibGlj\nEndpoint = vpn.example:51820\nAllowedIPs = "
                 "0.0.0.0/0\n",
                 ""),
         false);
  Report("WireGuard, many comments", "wireguard",
         Largest("[Interface]\nPrivateKey = cHJpdmF0ZQ==\nAddress = 10.0.0.2/32\nDNS = 1.1.1.1\n"
                 "[Peer]\nPublicKey = cHVibGlj\nEndpoint = vpn.example:51820\nAllowedIPs = "
                 "0.0.0.0/0\n",
                 "# a comment of some length\n", ""),
         false);
  Report("OpenVPN, a long certificate", "openvpn",
         Largest("client\ndev tun\nremote vpn.example 1194\n<ca>\n",
                 "MIIBszCCAVmgAwIBAgIUXvAvxLp1Oj7wR7Uq2cZ7yqP4W9IwCgYIKoZIzj0EAwIw\n", "</ca>\n"),
         false);
  Report("OpenVPN, thousands of servers", "openvpn",
         Largest("client\ndev tun\n", "remote vpn.example 1194\n", "<ca>\ncertificate\n</ca>\n"),
         false);
}

}  // namespace
}  // namespace quorvex::linux_service

int main() {
  quorvex::linux_service::ReportSingBox();
  quorvex::linux_service::ReportXray();
  quorvex::linux_service::ReportTextProfiles();
  return 0;
}
