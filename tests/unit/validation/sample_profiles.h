// SPDX-License-Identifier: Apache-2.0
//
// One plain profile for each engine that passes all rules.
#pragma once

namespace quorvex::test {

inline constexpr char kSingBoxProfile[] = R"({
  "dns": {"servers": [{"type": "https", "server": "1.1.1.1"}]},
  "inbounds": [{"type": "tun", "auto_route": true}],
  "outbounds": [{"type": "vless", "tag": "proxy", "server": "vpn.example"}]
})";

inline constexpr char kXrayProfile[] = R"({
  "inbounds": [{"protocol": "tun"}],
  "outbounds": [{"protocol": "vless", "tag": "proxy"}]
})";

inline constexpr char kWireGuardProfile[] =
    "[Interface]\n"
    "PrivateKey = cHJpdmF0ZQ==\n"
    "Address = 10.0.0.2/32\n"
    "DNS = 1.1.1.1\n"
    "[Peer]\n"
    "PublicKey = cHVibGlj\n"
    "Endpoint = vpn.example:51820\n"
    "AllowedIPs = 0.0.0.0/0\n";

inline constexpr char kOpenVpnProfile[] =
    "client\n"
    "dev tun\n"
    "remote vpn.example 1194\n"
    "<ca>\n"
    "certificate\n"
    "</ca>\n";

}  // namespace quorvex::test
