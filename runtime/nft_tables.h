// SPDX-License-Identifier: Apache-2.0
//
// Tables of nftables that an engine may leave behind, found and deleted by netlink. The kill
// switch's own table is none of them: nft loads and deletes that one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace quorvex::linux_service {

struct NftTable {
  // NFPROTO_IPV4, NFPROTO_IPV6, NFPROTO_INET ...
  std::uint8_t family = 0;
  std::string name;
  // The kernel gives each table a number of its own, never a second time.
  std::uint64_t handle = 0;
};

// All tables of all families; none on a kernel without nf_tables. On failure `error` (not null)
// says why.
[[nodiscard]] bool ListNftTables(std::vector<NftTable>* tables, std::string* error);

struct NftTableUse {
  std::size_t rules = 0;
  // Whether one of them compares a packet's interface with the name that was looked for.
  bool namesInterface = false;
};

// Looks through the rules of a table, for the exact name of an interface; a table that has gone
// meanwhile has none. On failure `error` (not null) says why.
[[nodiscard]] bool SearchNftTable(const NftTable& table, const std::string& interface,
                                  NftTableUse* use, std::string* error);

// Deletes this very table with all that is in it, and not another of the same name; one that has
// gone meanwhile counts as deleted.
[[nodiscard]] bool DeleteNftTable(const NftTable& table, std::string* error);

}  // namespace quorvex::linux_service
