// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace quorvex::linux_service {

// Rewrites a validated sing-box configuration so that the service alone decides the tunnel: its
// interface, addresses, routes, routing rules and the way of DNS. `protocol`, the profile's,
// selects the outbound that everything goes through. On success `normalized` is the new text, a
// secret like the old one; on failure `error` (neither is null) is one sentence. Pure; any thread.
[[nodiscard]] bool NormalizeSingBox(const std::string& protocol, const std::string& configuration,
                                    std::string* normalized, std::string* error);

}  // namespace quorvex::linux_service
