// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace quorvex::linux_service {

// Overwrites what working on a secret leaves beside the secret's own memory: the vector registers
// that copies go through, and the calling thread's stack below the caller, where the dynamic linker
// and signal handlers save those registers. For the end of such work, before other work begins on
// the thread.
void WipeSecretTraces() noexcept;

}  // namespace quorvex::linux_service
