// SPDX-License-Identifier: Apache-2.0
//
// What an Xray profile is refused with, by the rules and by the second reading.
#pragma once

namespace quorvex::linux_service {

inline constexpr const char* kXrayApi = "Xray API listeners are not permitted in VPN profiles.";
inline constexpr const char* kXrayLogFile = "Xray profiles may not write logs to files.";
inline constexpr const char* kXrayFileMember =
    "Xray profiles may not reference privileged certificate files.";
inline constexpr const char* kXrayExternalResource =
    "Xray profiles may not load external resources as root.";
inline constexpr const char* kXrayNoInbound = "Xray profiles must contain a TUN inbound.";
inline constexpr const char* kXrayNotOneInbound =
    "Xray profiles must contain exactly one app-owned TUN inbound.";
inline constexpr const char* kXrayNotTun = "The Xray inbound must use the TUN protocol.";
inline constexpr const char* kXrayNoOutbound = "Xray profiles must contain at least one outbound.";
inline constexpr const char* kXrayNoProxy = "Xray profiles require a tagged proxy outbound.";

}  // namespace quorvex::linux_service
