// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gio/gio.h>

namespace quorvex::linux_service {

// Ends an engine's process and reaps it: SIGTERM if it still runs, and force when it has not ended
// 8 s later. True when it ended without force. Blocks the calling thread.
[[nodiscard]] bool EndChild(GSubprocess* process);

}  // namespace quorvex::linux_service
