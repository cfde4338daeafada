// SPDX-License-Identifier: Apache-2.0
#include "runtime/leftovers.h"

#include <linux/fib_rules.h>
#include <linux/netfilter.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <span>

#include "runtime/kernel_routes.h"
#include "runtime/netlink.h"
#include "runtime/nft_tables.h"
#include "runtime/routing_rules.h"

namespace quorvex::linux_service {
namespace {

using Rules = std::vector<RoutingRule>;
using Routes = std::vector<KernelRoute>;

// sing-box's rules: 9000 to 9010 lead marked packets into its table, 32768 all that found no other
// route. It clears the same numbers itself at its start and at its end.
constexpr std::uint32_t kSingBoxTable = 2022;
constexpr std::uint32_t kSingBoxFirstRule = 9000;
constexpr std::uint32_t kSingBoxLastRule = 9010;
constexpr std::uint32_t kSingBoxFallbackRule = 32768;

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

// What is on the machine. `tunnel` is the engine's interface, 0 when that is gone.
struct Kernel {
  Rules rules;
  Routes routes;
  std::uint32_t tunnel = 0;
};

// Everything that one kind of engine may leave; empty or null where it leaves nothing of that sort.
struct Leaves {
  EngineKind engine;
  std::span<const TableName> tables;
  std::span<const char* const> sockets;
  // Of the rules that were not there before, those that look like the engine's.
  Rules (*rules)(const Kernel& fresh);
  // Routes past the tunnel; and the default routes that it took away.
  bool routes;
};

// Whether somebody else has routes in the table.
bool IsInUse(std::uint32_t table, const Kernel& kernel) {
  return std::ranges::any_of(kernel.routes, [table, &kernel](const KernelRoute& route) {
    return route.table == table && (kernel.tunnel == 0 || route.device != kernel.tunnel);
  });
}

bool IsInSingBoxRange(const RoutingRule& rule) {
  return rule.priority >= kSingBoxFirstRule && rule.priority <= kSingBoxLastRule;
}

bool LooksUpAnotherTable(const RoutingRule& rule) {
  return rule.action == FR_ACT_TO_TBL && rule.table != kSingBoxTable;
}

// A sing-box clears the whole range when it starts, so all of it belongs to one.
Rules SingBoxRules(const Kernel& fresh) {
  Rules ours;
  if (IsInUse(kSingBoxTable, fresh)) {
    return ours;
  }
  const bool isOurRange = std::ranges::none_of(fresh.rules, [](const RoutingRule& rule) {
    return IsInSingBoxRange(rule) && LooksUpAnotherTable(rule);
  });
  std::ranges::copy_if(fresh.rules, std::back_inserter(ours),
                       [isOurRange](const RoutingRule& rule) {
                         const bool isFallback =
                             rule.priority == kSingBoxFallbackRule && rule.table == kSingBoxTable;
                         return isFallback || (isOurRange && IsInSingBoxRange(rule));
                       });
  return ours;
}

// As `ip rule` makes them: older ones name no maker, newer ones the boot.
bool IsMadeByIp(const RoutingRule& rule) {
  return rule.plain && rule.action == FR_ACT_TO_TBL &&
         (rule.maker == RTPROT_UNSPEC || rule.maker == RTPROT_BOOT);
}

// "not fwmark N lookup N": everything but the tunnel's own packets goes by its table.
bool IsQuickRule(const RoutingRule& rule) {
  return IsMadeByIp(rule) && rule.inverted && rule.mark != 0 && rule.mark == rule.table &&
         rule.suppressed == UINT32_MAX;
}

// "lookup main suppress_prefixlength 0": but first by the main table without its default route.
bool IsQuickCompanion(const RoutingRule& rule) {
  return IsMadeByIp(rule) && !rule.inverted && rule.mark == 0 && rule.table == RT_TABLE_MAIN &&
         rule.suppressed == 0;
}

// wg-quick adds the companion right after its rule, and the kernel puts it one before. A companion
// that stands alone lost its rule to a wg-quick that was stopped half-way.
bool BelongsTo(const RoutingRule& companion, const Rules& rules) {
  return std::ranges::any_of(rules, [&companion](const RoutingRule& rule) {
    return rule.family == companion.family && rule.priority == companion.priority + 1;
  });
}

Rules WireGuardRules(const Kernel& fresh) {
  Rules ours;
  Rules foreign;
  for (const RoutingRule& rule : fresh.rules) {
    if (IsQuickRule(rule)) {
      (IsInUse(rule.table, fresh) ? foreign : ours).push_back(rule);
    }
  }
  for (const RoutingRule& rule : fresh.rules) {
    if (IsQuickCompanion(rule) && !BelongsTo(rule, foreign)) {
      ours.push_back(rule);
    }
  }
  return ours;
}

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

bool IsIn(const std::vector<std::string>& descriptions, const std::string& description) {
  return std::ranges::find(descriptions, description) != descriptions.end();
}

template <typename Entry>
void KeepDescriptions(const std::vector<Entry>& entries, std::vector<std::string>* descriptions) {
  for (const Entry& entry : entries) {
    descriptions->push_back(entry.description);
  }
}

// Only what an engine of this kind may leave. A table's routes tell whose the rules to it are.
bool ListKernel(const Leaves& leaves, Kernel* kernel, std::string* error) {
  kernel->tunnel = if_nametoindex(TunnelInterfaceFor(leaves.engine));
  return (leaves.rules == nullptr || ListRoutingRules(&kernel->rules, error)) &&
         ((leaves.rules == nullptr && !leaves.routes) || ListRoutes(&kernel->routes, error));
}

Rules LikelyRules(const Leaves& leaves, const GroundRecord& record, const Kernel& kernel) {
  if (leaves.rules == nullptr) {
    return {};
  }
  Kernel fresh = kernel;
  std::erase_if(fresh.rules, [&record](const RoutingRule& rule) {
    return IsIn(record.rules, rule.description);
  });
  return leaves.rules(fresh);
}

bool IsMain(const KernelRoute& route) {
  return route.table == RT_TABLE_MAIN && route.type == RTN_UNICAST;
}

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

// Host routes to its servers, and what a server or the profile wanted beside the tunnel.
Routes RoutesPastTunnel(const GroundRecord& record, const Kernel& kernel) {
  const std::vector<std::string> gateways = Gateways(record);
  Routes past;
  std::ranges::copy_if(kernel.routes, std::back_inserter(past), [&](const KernelRoute& route) {
    return IsMain(route) && route.protocol == RTPROT_BOOT && route.prefixLength > 0 &&
           HasNoMetric(route) && IsIn(gateways, route.gateway) &&
           !IsIn(record.routes, route.description);
  });
  return past;
}

bool LeadsToServer(const KernelRoute& route, const GroundRecord& record) {
  constexpr std::size_t kBitsPerByte = 8;
  return route.prefixLength == route.destination.size() * kBitsPerByte &&
         IsIn(record.servers, route.destination);
}

// A server may tell OpenVPN to put its own default route in the place of the machine's.
bool TakesDefault(const Kernel& kernel) {
  return std::ranges::any_of(kernel.routes, [&kernel](const KernelRoute& route) {
    return IsDefault(route) && route.device == kernel.tunnel;
  });
}

std::vector<std::string> MissingDefaults(const GroundRecord& record, const Kernel& kernel) {
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

bool RemoveRules(const Leaves& leaves, const GroundRecord& record, const Kernel& kernel,
                 std::string* error) {
  Rules ours = record.isSettled ? Rules() : LikelyRules(leaves, record, kernel);
  std::vector<std::string> likely;
  KeepDescriptions(ours, &likely);
  std::ranges::copy_if(kernel.rules, std::back_inserter(ours), [&](const RoutingRule& rule) {
    return IsIn(record.addedRules, rule.description) && !IsIn(likely, rule.description);
  });
  bool removed = true;
  for (const RoutingRule& rule : ours) {
    removed = DeleteRoutingRule(rule, error) && removed;
  }
  return removed;
}

// OpenVPN goes on to its next server by itself, so a route to one may come at any time.
bool RemoveRoutes(const GroundRecord& record, const Kernel& kernel, std::string* error) {
  bool removed = true;
  for (const KernelRoute& route : RoutesPastTunnel(record, kernel)) {
    if (IsIn(record.addedRoutes, route.description) || LeadsToServer(route, record)) {
      removed = DeleteRoute(route, error) && removed;
    }
  }
  return removed;
}

// When it ends in good order, OpenVPN puts the default route back by itself, but bare: without
// metric, source and maker, which would not be the machine's route any more.
bool IsBareCopy(const KernelRoute& route, const KernelRoute& original, const GroundRecord& record) {
  return IsDefault(route) && route.protocol == RTPROT_BOOT && route.gateway == original.gateway &&
         route.device == original.device && !IsIn(record.routes, route.description);
}

bool Restore(const KernelRoute& original, const GroundRecord& record, const Kernel& kernel,
             std::string* error) {
  return RestoreRoute(original, error) &&
         std::ranges::all_of(kernel.routes, [&](const KernelRoute& route) {
           return !IsBareCopy(route, original, record) || DeleteRoute(route, error);
         });
}

// As long as the record is not settled, a default route counts as taken when the machine has none.
bool RestoreRoutes(const GroundRecord& record, const Kernel& kernel, std::string* error) {
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

// sing-box builds its table in several steps, the first of which bring no rules.
bool IsHalfBuilt(const NftTable& table, const GroundRecord& record) {
  return !IsIn(record.tables, std::to_string(table.handle)) && NftTableIsWithoutRules(table);
}

bool IsOurs(const NftTable& table, std::span<const TableName> names, const GroundRecord& record) {
  return std::ranges::any_of(names, [&](const TableName& name) {
    return table.family == name.family && table.name == name.name &&
           (name.interface == nullptr || NftTableNamesInterface(table, name.interface) ||
            IsHalfBuilt(table, record));
  });
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
    removed = (!IsOurs(table, leaves.tables, record) || DeleteNftTable(table, error)) && removed;
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
  Kernel kernel;
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
  Kernel kernel;
  if (leaves == nullptr) {
    return true;
  }
  if (!ListKernel(*leaves, &kernel, error)) {
    return false;
  }
  KeepDescriptions(LikelyRules(*leaves, record, kernel), &changes->addedRules);
  if (leaves->routes && !changes->isSettled) {
    KeepDescriptions(RoutesPastTunnel(record, kernel), &changes->addedRoutes);
    if (TakesDefault(kernel)) {
      changes->takenRoutes = MissingDefaults(record, kernel);
    }
  }
  return true;
}

bool RemoveLeftovers(const GroundRecord& record, std::string* error) {
  const Leaves* leaves = LeavesOf(record.engine);
  Kernel kernel;
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
