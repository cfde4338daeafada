// SPDX-License-Identifier: Apache-2.0
//
// The kernel's routes (ip route), listed, deleted and put back one by one.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace quorvex::linux_service {

// The parts of a route by which we tell whose it is.
struct KernelRoute {
  // AF_INET or AF_INET6.
  std::uint8_t family = 0;
  // RTPROT_...: how it came to be. Tools that name nothing make RTPROT_BOOT.
  std::uint8_t protocol = 0;
  std::uint8_t prefixLength = 0;
  // RTN_UNICAST, or what else becomes of the packets.
  std::uint8_t type = 0;
  // RT_TABLE_MAIN, or a number that somebody chose.
  std::uint32_t table = 0;
  // The destination's 4 or 16 bytes; empty for a default route.
  std::string destination;
  // 0 when it has none.
  std::uint32_t metric = 0;
  // The gateway's bytes; empty when it leads through none.
  std::string gateway;
  // The interface's index; 0 when there are several or none.
  std::uint32_t device = 0;
  // The kernel's own description, which names this route and no other. The same for one route as
  // long as it stands.
  std::string description;
};

// All routes of all tables, both families. On failure `error` (not null) says why.
[[nodiscard]] bool ListRoutes(std::vector<KernelRoute>* routes, std::string* error);

// Reads a description from ListRoutes back; false when it is none.
[[nodiscard]] bool ReadRoute(const std::string& description, KernelRoute* route);

// Deletes the route; one that has gone meanwhile counts as deleted.
[[nodiscard]] bool DeleteRoute(const KernelRoute& route, std::string* error);

// Puts a route back that stood before; one that stands again already counts as put back, and so
// does one whose interface or gateway is out of reach by now.
[[nodiscard]] bool RestoreRoute(const KernelRoute& route, std::string* error);

}  // namespace quorvex::linux_service
