// SPDX-License-Identifier: Apache-2.0
//
// What stood on the machine before an engine was started, and what had changed when its tunnel was
// up; kept in a root-only file as long as the engine may have left something. Its text holds no
// secrets.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "runtime/engine_catalogue.h"

namespace quorvex::linux_service {

struct GroundRecord {
  EngineKind engine = EngineKind::kUnsupported;
  // Descriptions of routing rules and of main-table routes (see routing_rules.h, main_routes.h).
  std::vector<std::string> rules;
  std::vector<std::string> routes;
  // Numbers of tables of nftables, in decimal.
  std::vector<std::string> tables;
  // The servers' addresses, 4 or 16 bytes each in network order.
  std::vector<std::string> servers;
  // What the engine has added and taken away, as far as it was noted.
  std::vector<std::string> addedRules;
  std::vector<std::string> addedRoutes;
  std::vector<std::string> takenRoutes;
  // The tunnel has been up for so long that this is all.
  bool isSettled = false;
};

// The record as lines of text, the last of which says that it is whole; and back. Of several such
// texts in a row, each adds to the one before; what follows the last that is whole is left out.
// Nothing when not even the first is: then the service ended before it started an engine.
[[nodiscard]] std::string WriteGroundText(const GroundRecord& record);
[[nodiscard]] std::optional<GroundRecord> ReadGroundText(const std::string& text);

// Stores the record for a later process; on failure `error` (not null) says why.
[[nodiscard]] bool StoreGroundRecord(const GroundRecord& record, std::string* error);
// Adds to the stored record and leaves it as it was when that fails, or when the process ends
// meanwhile.
[[nodiscard]] bool AppendGroundRecord(const GroundRecord& changes, std::string* error);
// Nothing, into `record`, when there is none or it is not whole. On failure `error` (not null) says
// why, and nobody knows whether there is one.
[[nodiscard]] bool LoadGroundRecord(std::optional<GroundRecord>* record, std::string* error);
// Removes the record and, where it may, its folder. Success when there is none.
[[nodiscard]] bool RemoveGroundRecord(std::string* error);

}  // namespace quorvex::linux_service
