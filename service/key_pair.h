// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace quorvex::service_front {

// Makes a fresh WireGuard key pair with the system's `wg`, both keys as trimmed base64 text. Blocks
// the calling thread for up to about six seconds per tool run. On failure `error` is one sentence,
// or untouched when a tool succeeded without writing anything. The caller wipes `privateKey`. No
// pointer may be null.
[[nodiscard]] bool GenerateWireGuardKeyPair(std::string* privateKey, std::string* publicKey,
                                            std::string* error);

}  // namespace quorvex::service_front
