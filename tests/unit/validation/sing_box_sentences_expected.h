// SPDX-License-Identifier: Apache-2.0
//
// What the service says of sing-box profiles, to the byte; written from its contract, not taken
// from its code.
#pragma once

namespace quorvex::test::sing_box {

inline constexpr char kMalformed[] = "The JSON VPN configuration is malformed.";
inline constexpr char kNotAnObject[] = "The JSON VPN configuration must be an object.";
inline constexpr char kTooComplex[] = "The JSON VPN configuration exceeds complexity limits.";
inline constexpr char kExperimental[] =
    "Sing-box experimental services are not permitted in VPN profiles.";
inline constexpr char kLogFile[] = "Sing-box profiles may not write logs to files.";
inline constexpr char kFileMember[] =
    "Sing-box profiles may not reference privileged certificate files.";
inline constexpr char kExternal[] = "Sing-box profiles may not load external resources as root.";
inline constexpr char kNoDns[] = "Sing-box profiles require app-owned remote DNS configuration.";
inline constexpr char kNoDnsServer[] = "Sing-box profiles require at least one remote DNS server.";
inline constexpr char kDnsNotStructured[] = "Sing-box DNS servers must use structured entries.";
inline constexpr char kDnsIncomplete[] = "The Sing-box DNS server is incomplete.";
inline constexpr char kDnsNotRemote[] = "Sing-box DNS must use a remote network server type.";
inline constexpr char kNoInbound[] = "Sing-box profiles must contain a TUN inbound.";
inline constexpr char kNotOneInbound[] =
    "Sing-box profiles must contain exactly one app-owned TUN inbound.";
inline constexpr char kBadInbound[] = "The Sing-box TUN inbound is invalid.";
inline constexpr char kNoAutoRoute[] = "Sing-box profiles require an auto-route TUN inbound.";
inline constexpr char kNoOutbound[] = "Sing-box profiles must contain at least one outbound.";
inline constexpr char kNoProxy[] =
    "The Sing-box configuration does not contain a tagged proxy outbound matching the selected VPN "
    "protocol.";

}  // namespace quorvex::test::sing_box
