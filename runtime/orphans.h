// SPDX-License-Identifier: Apache-2.0
//
// Processes that an earlier run of the service started and that outlived it.
#pragma once

namespace quorvex::linux_service {

// Ends engines of ours and tools that were at work for us: those whose program is one that we run
// and whose command line is ours, and what these tools have started. SIGTERM, and force 8 s later.
// Never touches the children of this process, nor anything in another network namespace. Blocks the
// calling thread.
void EndOrphans();

// Ends DNS helpers that an OpenVPN of ours ran and that outlived it: what they still do would come
// after everything has been taken back. SIGTERM, and force 1 s later.
void EndOpenVpnHelpers();

// Waits 1 s for the end of what served our WireGuard interface in user space, which follows the end
// of the interface, and then ends it in the same way, but with force 1 s later.
void EndWireGuardServers();

}  // namespace quorvex::linux_service
