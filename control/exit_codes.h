// SPDX-License-Identifier: Apache-2.0
//
// How quorvexvpnctl ends, for scripts. quorvexvpnctl(1) lists the same numbers.
#pragma once

namespace quorvex::control {

inline constexpr int kExitOk = 0;
// Something failed that has no number of its own; for `doctor`: something is missing; for `status
// --connected`: there is no tunnel.
inline constexpr int kExitFailure = 1;
// The command line makes no sense.
inline constexpr int kExitUsage = 2;
// No bus, no service on it, or it ended on the way.
inline constexpr int kExitUnreachable = 3;
inline constexpr int kExitNotAuthorized = 4;
// The profile does not pass the rules, or is nothing that could be sent.
inline constexpr int kExitProfileRefused = 5;
// The profile was accepted, but there is no tunnel.
inline constexpr int kExitConnectionFailed = 6;
// Another connect or disconnect is under way; later it may work.
inline constexpr int kExitBusy = 7;
// The tunnel is up, but the kill switch that was asked for could not be applied.
inline constexpr int kExitNoKillSwitch = 8;
// As a shell reports a command that died of the signal.
inline constexpr int kExitInterrupted = 130;
inline constexpr int kExitTerminated = 143;

}  // namespace quorvex::control
