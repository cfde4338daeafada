// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace quorvex::test {

inline const std::string kOpenVpnBasis =
    "client\n"
    "remote vpn.example 1194\n"
    "dev tun\n";

// A sound profile with this text behind it, or before it.
inline std::string AfterBasis(const std::string& text) {
  return kOpenVpnBasis + text + "\n";
}

inline std::string BeforeBasis(const std::string& text) {
  return text + "\n" + kOpenVpnBasis;
}

// A sound profile with these lines in an inline block of it.
inline std::string InBlock(const std::string& lines) {
  return AfterBasis("<ca>\n" + lines + "\n</ca>");
}

}  // namespace quorvex::test
