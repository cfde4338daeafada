// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace quorvex::service_front {

// Runs the service from start-up recovery to the end of its shutdown. Returns the process's exit
// status: 0, or 1 when the bus name was lost or never acquired, or when the final stop failed.
[[nodiscard]] int RunService();

}  // namespace quorvex::service_front
