// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace quorvex::linux_service {

// Rewrites a validated Xray configuration so that the service decides the tunnel's interface,
// addresses and routes, and that all its traffic goes to the first proxy outbound. On success
// `normalized` is the new text, a secret like the old one; on failure `error` (neither is null) is
// one sentence. Pure; any thread.
[[nodiscard]] bool NormalizeXray(const std::string& configuration, std::string* normalized,
                                 std::string* error);

}  // namespace quorvex::linux_service
