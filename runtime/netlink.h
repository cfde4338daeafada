// SPDX-License-Identifier: Apache-2.0
//
// One request and its answers on a netlink socket. Each call opens what it needs, blocks until the
// kernel has answered, which takes microseconds, and may run on any thread.
#pragma once

#include <libmnl/libmnl.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "runtime/glib_ptr.h"

namespace quorvex::linux_service {

using NetlinkSocketPtr = std::unique_ptr<mnl_socket, ReleaseWith<mnl_socket_close>>;
// Room for one message, or for a datagram of the kernel's answers.
struct NetlinkBuffer {
  alignas(nlmsghdr) std::array<char, 32768> bytes;
};

// A socket of the protocol family, such as NETLINK_ROUTE; null with errno set when there is none.
[[nodiscard]] NetlinkSocketPtr OpenNetlink(int protocol);

// Begins a message of one request in `buffer`, with sequence number 1 and `header` (a plain
// structure of the kernel's) behind the netlink header.
[[nodiscard]] nlmsghdr* PutNetlinkMessage(NetlinkBuffer* buffer, std::uint16_t type,
                                          std::uint16_t flags, const void* header,
                                          std::size_t headerSize);

// Sends `size` bytes at `request` and hands each answer to the request numbered `sequence` to
// `callback` (null: none expected but an acknowledgement) with `data`. 0, or an errno.
[[nodiscard]] int AskKernel(const mnl_socket* socket, const void* request, std::size_t size,
                            std::uint32_t sequence, mnl_cb_t callback, void* data);

// Sends a dump request on a socket of its own and hands each answer to `callback` with `data`. When
// the kernel says that what it lists changed meanwhile, it begins anew, by way of `restart`. 0, or
// an errno.
[[nodiscard]] int ListFromKernel(int protocol, const nlmsghdr* request, mnl_cb_t callback,
                                 void* data, void (*restart)(void* data));

// "`what`: " and the system's words for `code`, into `error` (not null). Always false.
bool FailWithCode(const char* what, int code, std::string* error);

}  // namespace quorvex::linux_service
