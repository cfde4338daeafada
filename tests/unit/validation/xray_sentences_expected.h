// SPDX-License-Identifier: Apache-2.0
//
// What the service says of Xray profiles, to the byte; written from its contract, not taken from
// its code.
#pragma once

namespace quorvex::test::xray {

inline constexpr char kMalformed[] = "The JSON VPN configuration is malformed.";
inline constexpr char kNotAnObject[] = "The JSON VPN configuration must be an object.";
inline constexpr char kTooComplex[] = "The JSON VPN configuration exceeds complexity limits.";
inline constexpr char kApi[] = "Xray API listeners are not permitted in VPN profiles.";
inline constexpr char kLogFile[] = "Xray profiles may not write logs to files.";
inline constexpr char kFileMember[] =
    "Xray profiles may not reference privileged certificate files.";
inline constexpr char kExternal[] = "Xray profiles may not load external resources as root.";
inline constexpr char kNoInbound[] = "Xray profiles must contain a TUN inbound.";
inline constexpr char kNotOneInbound[] =
    "Xray profiles must contain exactly one app-owned TUN inbound.";
inline constexpr char kNotTun[] = "The Xray inbound must use the TUN protocol.";
inline constexpr char kNoOutbound[] = "Xray profiles must contain at least one outbound.";
inline constexpr char kNoProxy[] = "Xray profiles require a tagged proxy outbound.";

}  // namespace quorvex::test::xray
