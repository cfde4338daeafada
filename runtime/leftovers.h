// SPDX-License-Identifier: Apache-2.0
//
// What each engine adds to the machine and takes back when it ends by itself, and what therefore
// stays when it is killed.
#pragma once

#include <string>

#include "runtime/ground_record.h"

namespace quorvex::linux_service {

// Notes, of what an engine of the record's kind adds, what stands before it. On failure `error`
// (not null) says why.
[[nodiscard]] bool NoteWhatStands(GroundRecord* record, std::string* error);

// Notes in `changes`, now that the record's tunnel is up, what its engine has added and taken away;
// with `changes` settled, rules alone: routes come all at once.
[[nodiscard]] bool NoteWhatChanged(const GroundRecord& record, GroundRecord* changes,
                                   std::string* error);

// Removes what the record's engine left and puts back what it took away: what was noted when its
// tunnel was up and, unless the record is settled, what has come since the beginning and looks like
// the engine's. Both, and names that are ours alone, show it to be ours. To be called when the
// engine and its interface are gone. False, with a reason in `error` (not null), when something
// could not be removed; the rest has been.
[[nodiscard]] bool RemoveLeftovers(const GroundRecord& record, std::string* error);

}  // namespace quorvex::linux_service
