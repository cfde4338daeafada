// SPDX-License-Identifier: Apache-2.0
//
// The routes that OpenVPN adds past its tunnel, and the default route that it takes away.
#pragma once

#include <string>
#include <vector>

#include "runtime/ground_record.h"
#include "runtime/kernel_routing.h"

namespace quorvex::linux_service {

// Whether the route stands in the main table and leads somewhere.
[[nodiscard]] bool IsMain(const KernelRoute& route);

// Host routes to its servers, and what a server or the profile wanted beside the tunnel, as far as
// the record does not know them from before. Pure.
[[nodiscard]] std::vector<KernelRoute> RoutesPastTunnel(const GroundRecord& record,
                                                        const KernelRouting& kernel);

// The descriptions of the default routes in whose place OpenVPN has put its own. Pure.
[[nodiscard]] std::vector<std::string> TakenDefaults(const GroundRecord& record,
                                                     const KernelRouting& kernel);

// Removes the former and puts the latter back, as noted in the record; `kernel` is the machine
// after the engine. False, with a reason in `error` (not null), when something fails.
[[nodiscard]] bool RemoveRoutes(const GroundRecord& record, const KernelRouting& kernel,
                                std::string* error);
[[nodiscard]] bool RestoreRoutes(const GroundRecord& record, const KernelRouting& kernel,
                                 std::string* error);

}  // namespace quorvex::linux_service
