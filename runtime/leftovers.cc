// SPDX-License-Identifier: Apache-2.0
#include "runtime/leftovers.h"

#include <linux/netfilter.h>
#include <net/if.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <span>

#include "runtime/kernel_routing.h"
#include "runtime/leftover_routes.h"
#include "runtime/leftover_rules.h"
#include "runtime/netlink.h"
#include "runtime/nft_tables.h"

namespace quorvex::linux_service {
namespace {

using Rules = std::vector<RoutingRule>;

struct TableName {
  std::uint8_t family;
  const char* name;
  // The table is ours when a rule in it names this interface; null: its own name says so.
  const char* interface;
};

// Redirects all TCP to a port of sing-box, and so to nobody once it is dead.
constexpr std::array kSingBoxTables = {TableName{NFPROTO_INET, "sing-box", "quorvex-sbox0"}};
// Drops what comes to the tunnel's address from elsewhere, and marks replies.
constexpr std::array kWireGuardTables = {TableName{NFPROTO_IPV4, "wg-quick-quorvexvpn", nullptr},
                                         TableName{NFPROTO_IPV6, "wg-quick-quorvexvpn", nullptr}};
// Where wg speaks to the servers in user space.
constexpr std::array kWireGuardSockets = {"/run/wireguard/quorvexvpn.sock",
                                          "/run/amneziawg/quorvexvpn.sock"};

// Everything that one kind of engine may leave; empty or null where it leaves nothing of that sort.
struct Leaves {
  EngineKind engine;
  std::span<const TableName> tables;
  std::span<const char* const> sockets;
  // Of the rules that were not there before, those that look like the engine's.
  Rules (*rules)(const KernelRouting& fresh);
  // Routes past the tunnel; and the default routes that it took away.
  bool routes;
};

constexpr std::array kLeaves = {
    Leaves{EngineKind::kSingBox, kSingBoxTables, {}, SingBoxRules, false},
    Leaves{EngineKind::kXray, {}, {}, nullptr, false},
    Leaves{EngineKind::kWireGuard, kWireGuardTables, kWireGuardSockets, WireGuardRules, false},
    Leaves{EngineKind::kOpenVpn, {}, {}, nullptr, true},
};

const Leaves* LeavesOf(EngineKind engine) {
  const auto* leaves = std::ranges::find(kLeaves, engine, &Leaves::engine);
  return leaves == kLeaves.end() ? nullptr : leaves;
}

template <typename Entry>
void KeepDescriptions(const std::vector<Entry>& entries, std::vector<std::string>* descriptions) {
  for (const Entry& entry : entries) {
    descriptions->push_back(entry.description);
  }
}

// Only what an engine of this kind may leave. A table's routes tell whose the rules to it are.
bool ListKernel(const Leaves& leaves, KernelRouting* kernel, std::string* error) {
  kernel->tunnel = if_nametoindex(TunnelInterfaceFor(leaves.engine));
  return (leaves.rules == nullptr || ListRoutingRules(&kernel->rules, error)) &&
         ((leaves.rules == nullptr && !leaves.routes) || ListRoutes(&kernel->routes, error));
}

Rules LikelyRules(const Leaves& leaves, const GroundRecord& record, const KernelRouting& kernel) {
  if (leaves.rules == nullptr) {
    return {};
  }
  KernelRouting fresh = kernel;
  std::erase_if(fresh.rules, [&record](const RoutingRule& rule) {
    return IsDescribed(record.rules, rule.description);
  });
  return leaves.rules(fresh);
}

bool RemoveRules(const Leaves& leaves, const GroundRecord& record, const KernelRouting& kernel,
                 std::string* error) {
  Rules ours = record.isSettled ? Rules() : LikelyRules(leaves, record, kernel);
  std::vector<std::string> likely;
  KeepDescriptions(ours, &likely);
  std::ranges::copy_if(kernel.rules, std::back_inserter(ours), [&](const RoutingRule& rule) {
    return IsDescribed(record.addedRules, rule.description) &&
           !IsDescribed(likely, rule.description);
  });
  bool removed = true;
  for (const RoutingRule& rule : ours) {
    removed = DeleteRoutingRule(rule, error) && removed;
  }
  return removed;
}

bool RemoveIfOurs(const NftTable& table, const TableName& name, const GroundRecord& record,
                  std::string* error) {
  if (name.interface == nullptr) {
    return DeleteNftTable(table, error);
  }
  NftTableUse use;
  if (!SearchNftTable(table, name.interface, &use, error)) {
    return false;
  }
  // sing-box builds its table in several steps, the first of which bring no rules.
  const bool isHalfBuilt =
      use.rules == 0 && !IsDescribed(record.tables, std::to_string(table.handle));
  return (!use.namesInterface && !isHalfBuilt) || DeleteNftTable(table, error);
}

bool NoteTables(const Leaves& leaves, GroundRecord* record, std::string* error) {
  std::vector<NftTable> tables;
  if (!leaves.tables.empty() && !ListNftTables(&tables, error)) {
    return false;
  }
  for (const NftTable& table : tables) {
    record->tables.push_back(std::to_string(table.handle));
  }
  return true;
}

bool RemoveTables(const Leaves& leaves, const GroundRecord& record, std::string* error) {
  std::vector<NftTable> tables;
  if (leaves.tables.empty()) {
    return true;
  }
  if (!ListNftTables(&tables, error)) {
    return false;
  }
  bool removed = true;
  for (const NftTable& table : tables) {
    for (const TableName& name : leaves.tables) {
      const bool isNamed = table.family == name.family && table.name == name.name;
      removed = (!isNamed || RemoveIfOurs(table, name, record, error)) && removed;
    }
  }
  return removed;
}

// Nobody listens there any more.
bool RemoveSockets(const Leaves& leaves, std::string* error) {
  bool removed = true;
  for (const char* path : leaves.sockets) {
    struct stat status = {};
    if (lstat(path, &status) == 0 && S_ISSOCK(status.st_mode) && unlink(path) != 0) {
      removed = FailWithCode("Unable to remove a socket", errno, error);
    }
  }
  return removed;
}

}  // namespace

bool NoteWhatStands(GroundRecord* record, std::string* error) {
  const Leaves* leaves = LeavesOf(record->engine);
  KernelRouting kernel;
  if (leaves == nullptr) {
    return true;
  }
  if (!ListKernel(*leaves, &kernel, error) || !NoteTables(*leaves, record, error)) {
    return false;
  }
  KeepDescriptions(kernel.rules, &record->rules);
  if (leaves->routes) {
    std::erase_if(kernel.routes, [](const KernelRoute& route) { return !IsMain(route); });
    KeepDescriptions(kernel.routes, &record->routes);
  }
  return true;
}

bool NoteWhatChanged(const GroundRecord& record, GroundRecord* changes, std::string* error) {
  const Leaves* leaves = LeavesOf(record.engine);
  KernelRouting kernel;
  if (leaves == nullptr) {
    return true;
  }
  if (!ListKernel(*leaves, &kernel, error)) {
    return false;
  }
  KeepDescriptions(LikelyRules(*leaves, record, kernel), &changes->addedRules);
  if (leaves->routes && !changes->isSettled) {
    KeepDescriptions(RoutesPastTunnel(record, kernel), &changes->addedRoutes);
    changes->takenRoutes = TakenDefaults(record, kernel);
  }
  return true;
}

bool RemoveLeftovers(const GroundRecord& record, std::string* error) {
  const Leaves* leaves = LeavesOf(record.engine);
  KernelRouting kernel;
  if (leaves == nullptr) {
    return true;
  }
  // The table first: as long as sing-box's stands, the machine's connections go to its dead port,
  // which any user may open.
  const bool tables = RemoveTables(*leaves, record, error);
  const bool sockets = RemoveSockets(*leaves, error);
  if (!ListKernel(*leaves, &kernel, error)) {
    return false;
  }
  const bool rules = RemoveRules(*leaves, record, kernel, error);
  const bool routes = !leaves->routes ||
                      (RemoveRoutes(record, kernel, error) && RestoreRoutes(record, kernel, error));
  return tables && sockets && rules && routes;
}

}  // namespace quorvex::linux_service
