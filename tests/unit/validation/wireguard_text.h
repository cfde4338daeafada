// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace quorvex::test {

inline const std::string kInterface =
    "[Interface]\n"
    "PrivateKey = cHJpdmF0ZQ==\n"
    "Address = 10.0.0.2/32\n"
    "DNS = 1.1.1.1\n";

inline const std::string kPeer =
    "[Peer]\n"
    "PublicKey = cHVibGlj\n"
    "Endpoint = vpn.example:51820\n"
    "AllowedIPs = 0.0.0.0/0\n";

// A sound profile with these lines more in its Interface or in its Peer.
inline std::string WithInterface(const std::string& lines) {
  return kInterface + lines + "\n" + kPeer;
}

inline std::string WithPeer(const std::string& lines) {
  return kInterface + kPeer + lines + "\n";
}

// One whose only DNS lines, or AllowedIPs lines, are these.
inline std::string WithDns(const std::string& lines) {
  return "[Interface]\nPrivateKey = k\nAddress = a\n" + lines + "\n" + kPeer;
}

inline std::string WithAllowedIps(const std::string& lines) {
  return kInterface + "[Peer]\nPublicKey = k\nEndpoint = e\n" + lines + "\n";
}

}  // namespace quorvex::test
