// SPDX-License-Identifier: Apache-2.0
#include "runtime/leftover_routes.h"

#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <iterator>

namespace quorvex::linux_service {
namespace {

using Routes = std::vector<KernelRoute>;

bool IsDefault(const KernelRoute& route) {
  return IsMain(route) && route.family == AF_INET && route.prefixLength == 0;
}

// What the kernel makes of "no metric", and OpenVPN of IPv6.
bool HasNoMetric(const KernelRoute& route) {
  constexpr std::uint32_t kUnsetIpv6Metric = 1024;
  return route.family == AF_INET6 ? route.metric == 1 || route.metric == kUnsetIpv6Metric
                                  : route.metric == 0;
}

// The gateways of the machine's default routes, which OpenVPN uses for all that goes past its
// tunnel.
std::vector<std::string> Gateways(const GroundRecord& record) {
  std::vector<std::string> gateways;
  for (const std::string& description : record.routes) {
    KernelRoute route;
    if (ReadRoute(description, &route) && route.prefixLength == 0 && !route.gateway.empty()) {
      gateways.push_back(route.gateway);
    }
  }
  return gateways;
}

bool LeadsToServer(const KernelRoute& route, const GroundRecord& record) {
  constexpr std::size_t kBitsPerByte = 8;
  return route.prefixLength == route.destination.size() * kBitsPerByte &&
         IsDescribed(record.servers, route.destination);
}

// A server may tell OpenVPN to put its own default route in the place of the machine's.
bool TakesDefault(const KernelRouting& kernel) {
  return std::ranges::any_of(kernel.routes, [&kernel](const KernelRoute& route) {
    return IsDefault(route) && kernel.tunnel != 0 && route.device == kernel.tunnel;
  });
}

std::vector<std::string> MissingDefaults(const GroundRecord& record, const KernelRouting& kernel) {
  std::vector<std::string> missing;
  for (const std::string& description : record.routes) {
    KernelRoute route;
    if (ReadRoute(description, &route) && IsDefault(route) &&
        std::ranges::find(kernel.routes, description, &KernelRoute::description) ==
            kernel.routes.end()) {
      missing.push_back(description);
    }
  }
  return missing;
}

// When it ends in good order, OpenVPN puts the default route back by itself, but bare: without
// metric, source and maker, which would not be the machine's route any more.
bool IsBareCopy(const KernelRoute& route, const KernelRoute& original, const GroundRecord& record) {
  return IsDefault(route) && route.protocol == RTPROT_BOOT && route.gateway == original.gateway &&
         route.device == original.device && !IsDescribed(record.routes, route.description);
}

bool Restore(const KernelRoute& original, const GroundRecord& record, const KernelRouting& kernel,
             std::string* error) {
  return RestoreRoute(original, error) &&
         std::ranges::all_of(kernel.routes, [&](const KernelRoute& route) {
           return !IsBareCopy(route, original, record) || DeleteRoute(route, error);
         });
}

}  // namespace

bool IsMain(const KernelRoute& route) {
  return route.table == RT_TABLE_MAIN && route.type == RTN_UNICAST;
}

Routes RoutesPastTunnel(const GroundRecord& record, const KernelRouting& kernel) {
  const std::vector<std::string> gateways = Gateways(record);
  Routes past;
  std::ranges::copy_if(kernel.routes, std::back_inserter(past), [&](const KernelRoute& route) {
    return IsMain(route) && route.protocol == RTPROT_BOOT && route.prefixLength > 0 &&
           HasNoMetric(route) && IsDescribed(gateways, route.gateway) &&
           !IsDescribed(record.routes, route.description);
  });
  return past;
}

std::vector<std::string> TakenDefaults(const GroundRecord& record, const KernelRouting& kernel) {
  return TakesDefault(kernel) ? MissingDefaults(record, kernel) : std::vector<std::string>();
}

// OpenVPN goes on to its next server by itself, so a route to one may come at any time.
bool RemoveRoutes(const GroundRecord& record, const KernelRouting& kernel, std::string* error) {
  bool removed = true;
  for (const KernelRoute& route : RoutesPastTunnel(record, kernel)) {
    if (IsDescribed(record.addedRoutes, route.description) || LeadsToServer(route, record)) {
      removed = DeleteRoute(route, error) && removed;
    }
  }
  return removed;
}

// As long as the record is not settled, a default route counts as taken when the machine has none.
bool RestoreRoutes(const GroundRecord& record, const KernelRouting& kernel, std::string* error) {
  std::vector<std::string> taken = record.takenRoutes;
  if (!record.isSettled && taken.empty() && std::ranges::none_of(kernel.routes, IsDefault)) {
    taken = MissingDefaults(record, kernel);
  }
  bool restored = true;
  for (const std::string& description : taken) {
    KernelRoute route;
    restored = ReadRoute(description, &route) && Restore(route, record, kernel, error) && restored;
  }
  return restored;
}

}  // namespace quorvex::linux_service
