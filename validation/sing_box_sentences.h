// SPDX-License-Identifier: Apache-2.0
//
// The sentences that refuse a sing-box profile, in checking order. The rules and the reading by
// option tables share them: an option that reaches outside the tunnel is refused with the sentence
// of the rule that it gets around.
#pragma once

namespace quorvex::linux_service {

inline constexpr const char* kSingBoxExperimental =
    "Sing-box experimental services are not permitted in VPN profiles.";
inline constexpr const char* kSingBoxLogFile = "Sing-box profiles may not write logs to files.";
inline constexpr const char* kSingBoxFileMember =
    "Sing-box profiles may not reference privileged certificate files.";
inline constexpr const char* kSingBoxExternalResource =
    "Sing-box profiles may not load external resources as root.";
inline constexpr const char* kSingBoxNoDns =
    "Sing-box profiles require app-owned remote DNS configuration.";
inline constexpr const char* kSingBoxNoDnsServer =
    "Sing-box profiles require at least one remote DNS server.";
inline constexpr const char* kSingBoxDnsNotStructured =
    "Sing-box DNS servers must use structured entries.";
inline constexpr const char* kSingBoxDnsIncomplete = "The Sing-box DNS server is incomplete.";
inline constexpr const char* kSingBoxDnsNotRemote =
    "Sing-box DNS must use a remote network server type.";
inline constexpr const char* kSingBoxNoInbound = "Sing-box profiles must contain a TUN inbound.";
inline constexpr const char* kSingBoxNotOneInbound =
    "Sing-box profiles must contain exactly one app-owned TUN inbound.";
inline constexpr const char* kSingBoxBadInbound = "The Sing-box TUN inbound is invalid.";
inline constexpr const char* kSingBoxNoAutoRoute =
    "Sing-box profiles require an auto-route TUN inbound.";
inline constexpr const char* kSingBoxNoOutbound =
    "Sing-box profiles must contain at least one outbound.";
inline constexpr const char* kSingBoxNoProxy =
    "The Sing-box configuration does not contain a tagged proxy outbound matching the selected VPN "
    "protocol.";

}  // namespace quorvex::linux_service
