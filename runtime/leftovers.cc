// SPDX-License-Identifier: Apache-2.0
#include "runtime/leftovers.h"

#include <glib.h>
#include <linux/netfilter.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <span>

#include "runtime/kernel_routes.h"
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

// What is on the machine now and the record does not know.
struct Fresh {
  Rules rules;
  Routes routes;
};

// Everything that one kind of engine may leave; empty or null where it leaves nothing of that sort.
struct Leaves {
  EngineKind engine;
  std::span<const TableName> tables;
  std::span<const char* const> sockets;
  // Of the rules that were not there before, those that are the engine's.
  Rules (*rules)(const Fresh& fresh);
  // Host routes to its servers, past the tunnel; and the default route that it took away.
  bool routes;
};

// The engine's own routes went with its interface: a table with routes in it serves somebody else.
bool IsInUse(std::uint32_t table, const Routes& routes) {
  return std::ranges::find(routes, table, &KernelRoute::table) != routes.end();
}

Rules SingBoxRules(const Fresh& fresh) {
  Rules ours;
  if (!IsInUse(kSingBoxTable, fresh.routes)) {
    std::ranges::copy_if(fresh.rules, std::back_inserter(ours), [](const RoutingRule& rule) {
      const bool leads = rule.priority >= kSingBoxFirstRule && rule.priority <= kSingBoxLastRule;
      return leads || (rule.priority == kSingBoxFallbackRule && rule.table == kSingBoxTable);
    });
  }
  return ours;
}

// "not fwmark N lookup N": everything but the tunnel's own packets goes by its table.
bool IsQuickRule(const RoutingRule& rule) {
  return rule.inverted && rule.mark != 0 && rule.mark == rule.table;
}

// "lookup main suppress_prefixlength 0": but first by the main table without its default route.
bool IsQuickCompanion(const RoutingRule& rule) {
  return !rule.inverted && rule.mark == 0 && rule.table == RT_TABLE_MAIN && rule.suppressed == 0;
}

// wg-quick adds the companion right after its rule, and the kernel puts it one before. A companion
// that stands alone lost its rule to a wg-quick that was stopped half-way.
bool BelongsTo(const RoutingRule& companion, const Rules& rules) {
  return std::ranges::any_of(rules, [&companion](const RoutingRule& rule) {
    return rule.family == companion.family && rule.priority == companion.priority + 1;
  });
}

Rules WireGuardRules(const Fresh& fresh) {
  Rules ours;
  Rules foreign;
  for (const RoutingRule& rule : fresh.rules) {
    if (IsQuickRule(rule)) {
      (IsInUse(rule.table, fresh.routes) ? foreign : ours).push_back(rule);
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

template <typename Entry>
bool IsIn(const std::vector<std::string>& descriptions, const Entry& entry) {
  return std::ranges::find(descriptions, entry.description) != descriptions.end();
}

bool ListFresh(const GroundRecord& record, Fresh* fresh, std::string* error) {
  const auto isKnown = [&record](const RoutingRule& rule) { return IsIn(record.rules, rule); };
  if (!ListRoutingRules(&fresh->rules, error) || !ListRoutes(&fresh->routes, error)) {
    return false;
  }
  std::erase_if(fresh->rules, isKnown);
  return true;
}

bool RemoveRules(const Leaves& leaves, const GroundRecord& record, std::string* error) {
  Fresh fresh;
  if (leaves.rules == nullptr) {
    return true;
  }
  if (!ListFresh(record, &fresh, error)) {
    return false;
  }
  bool removed = true;
  for (const RoutingRule& rule : leaves.rules(fresh)) {
    removed = DeleteRoutingRule(rule, error) && removed;
  }
  return removed;
}

bool IsOurs(const NftTable& table, std::span<const TableName> names) {
  return std::ranges::any_of(names, [&table](const TableName& name) {
    return table.family == name.family && table.name == name.name &&
           (name.interface == nullptr || NftTableNamesInterface(table, name.interface));
  });
}

bool RemoveTables(const Leaves& leaves, std::string* error) {
  std::vector<NftTable> tables;
  if (leaves.tables.empty()) {
    return true;
  }
  if (!ListNftTables(&tables, error)) {
    return false;
  }
  bool removed = true;
  for (const NftTable& table : tables) {
    removed = (!IsOurs(table, leaves.tables) || DeleteNftTable(table, error)) && removed;
  }
  return removed;
}

void RemoveSockets(const Leaves& leaves) {
  for (const char* path : leaves.sockets) {
    struct stat status = {};
    if (lstat(path, &status) == 0 && S_ISSOCK(status.st_mode)) {
      // Nobody listens there any more; a socket that stays is replaced by the next server.
      static_cast<void>(unlink(path));
    }
  }
}

bool IsDefault(const KernelRoute& route) {
  return route.family == AF_INET && route.table == RT_TABLE_MAIN && route.prefixLength == 0;
}

// What OpenVPN adds to reach its server past the tunnel.
bool LeadsToServer(const KernelRoute& route, const GroundRecord& record) {
  constexpr std::size_t kBitsPerByte = 8;
  return route.table == RT_TABLE_MAIN && route.protocol == RTPROT_BOOT &&
         !route.destination.empty() &&
         route.prefixLength == route.destination.size() * kBitsPerByte &&
         std::ranges::find(record.servers, route.destination) != record.servers.end() &&
         !IsIn(record.routes, route);
}

// A server may have told OpenVPN to put its own default route in the place of the machine's.
bool RestoreDefaults(const Routes& routes, const GroundRecord& record, std::string* error) {
  if (std::ranges::any_of(routes, IsDefault)) {
    return true;
  }
  bool restored = true;
  for (const std::string& description : record.routes) {
    KernelRoute route;
    if (ReadRoute(description, &route) && IsDefault(route)) {
      restored = RestoreRoute(route, error) && restored;
    }
  }
  return restored;
}

bool RemoveRoutes(const Leaves& leaves, const GroundRecord& record, std::string* error) {
  Routes routes;
  if (!leaves.routes) {
    return true;
  }
  if (!ListRoutes(&routes, error)) {
    return false;
  }
  bool removed = true;
  for (const KernelRoute& route : routes) {
    removed = (!LeadsToServer(route, record) || DeleteRoute(route, error)) && removed;
  }
  return RestoreDefaults(routes, record, error) && removed;
}

template <typename Entry>
void KeepDescriptions(const std::vector<Entry>& entries, std::vector<std::string>* descriptions) {
  for (const Entry& entry : entries) {
    descriptions->push_back(entry.description);
  }
}

}  // namespace

bool NoteWhatStands(GroundRecord* record, std::string* error) {
  const Leaves* leaves = LeavesOf(record->engine);
  Rules rules;
  Routes routes;
  if (leaves == nullptr) {
    return true;
  }
  if ((leaves->rules != nullptr && !ListRoutingRules(&rules, error)) ||
      (leaves->routes && !ListRoutes(&routes, error))) {
    return false;
  }
  std::erase_if(routes, [](const KernelRoute& route) { return route.table != RT_TABLE_MAIN; });
  KeepDescriptions(rules, &record->rules);
  KeepDescriptions(routes, &record->routes);
  return true;
}

bool RemoveLeftovers(const GroundRecord& record, std::string* error) {
  const Leaves* leaves = LeavesOf(record.engine);
  if (leaves == nullptr) {
    return true;
  }
  // The table first: as long as sing-box's stands, the machine's connections go to its dead port,
  // which any user may open.
  const bool tables = RemoveTables(*leaves, error);
  const bool rules = RemoveRules(*leaves, record, error);
  const bool routes = RemoveRoutes(*leaves, record, error);
  RemoveSockets(*leaves);
  return tables && rules && routes;
}

}  // namespace quorvex::linux_service
