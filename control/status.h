// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "control/kernel_view.h"
#include "control/messages.h"

namespace quorvex::control {

// What the service and the kernel say of the tunnel.
struct Status {
  Snapshot snapshot;
  NetworkPath network;
  // kUnsupported when no tunnel interface exists.
  linux_service::EngineKind engine = linux_service::EngineKind::kUnsupported;
  FullRoute route;
  KillSwitch killSwitch = KillSwitch::kUnknown;
};

// Lines for people; `now` in milliseconds since the epoch.
[[nodiscard]] std::string StatusText(const Status& status, std::int64_t now);
[[nodiscard]] std::string StatusJson(const Status& status, std::int64_t now);

}  // namespace quorvex::control
