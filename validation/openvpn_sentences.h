// SPDX-License-Identifier: Apache-2.0
//
// What an OpenVPN profile is refused with, by the rules and by the second reading.
#pragma once

namespace quorvex::linux_service {

inline constexpr const char* kOpenVpnUnmatchedBlock =
    "The OpenVPN profile contains an unmatched inline block.";
inline constexpr const char* kOpenVpnUnsupportedBlock =
    "The OpenVPN profile contains an unsupported inline block.";
inline constexpr const char* kOpenVpnForbidden =
    "The OpenVPN profile contains a privileged or external-control directive that is not "
    "permitted.";
inline constexpr const char* kOpenVpnProxyCredentials =
    "OpenVPN HTTP proxy credentials may not reference an external file.";
inline constexpr const char* kOpenVpnUnterminatedBlock =
    "The OpenVPN profile contains an unterminated inline block.";
inline constexpr const char* kOpenVpnIncomplete =
    "OpenVPN profiles require client mode, a remote, and TUN\u2014not TAP.";
inline constexpr const char* kOpenVpnNotEmbedded =
    "OpenVPN profiles must embed credentials and certificates instead of referencing external "
    "files.";

}  // namespace quorvex::linux_service
