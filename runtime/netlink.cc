// SPDX-License-Identifier: Apache-2.0
#include "runtime/netlink.h"

#include <glib.h>

#include <cerrno>
#include <cstring>

namespace quorvex::linux_service {
namespace {

constexpr int kListAttempts = 10;

}  // namespace

NetlinkSocketPtr OpenNetlink(int protocol) {
  NetlinkSocketPtr socket(mnl_socket_open2(protocol, SOCK_CLOEXEC));
  if (socket != nullptr && mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) < 0) {
    return nullptr;
  }
  return socket;
}

nlmsghdr* PutNetlinkMessage(NetlinkBuffer* buffer, std::uint16_t type, std::uint16_t flags,
                            const void* header, std::size_t headerSize) {
  nlmsghdr* message = mnl_nlmsg_put_header(buffer->bytes.data());
  message->nlmsg_type = type;
  message->nlmsg_flags = flags;
  message->nlmsg_seq = 1;
  std::memcpy(mnl_nlmsg_put_extra_header(message, headerSize), header, headerSize);
  return message;
}

int AskKernel(const mnl_socket* socket, const void* request, std::size_t size,
              std::uint32_t sequence, mnl_cb_t callback, void* data) {
  if (mnl_socket_sendto(socket, request, size) < 0) {
    return errno;
  }
  NetlinkBuffer answer;
  int state = MNL_CB_OK;
  while (state == MNL_CB_OK) {
    const ssize_t length = mnl_socket_recvfrom(socket, answer.bytes.data(), answer.bytes.size());
    if (length < 0 && errno == EINTR) {
      continue;
    }
    if (length < 0) {
      return errno;
    }
    state = mnl_cb_run(answer.bytes.data(), static_cast<std::size_t>(length), sequence,
                       mnl_socket_get_portid(socket), callback, data);
  }
  return state == MNL_CB_STOP ? 0 : errno;
}

int ListFromKernel(int protocol, const nlmsghdr* request, mnl_cb_t callback, void* data,
                   void (*restart)(void* data)) {
  int code = EINTR;
  for (int attempt = 0; attempt < kListAttempts && code == EINTR; ++attempt) {
    // Anew for each attempt: an interrupted list goes on being sent to the socket that asked.
    const NetlinkSocketPtr socket = OpenNetlink(protocol);
    restart(data);
    code = socket == nullptr ? errno
                             : AskKernel(socket.get(), request, request->nlmsg_len,
                                         request->nlmsg_seq, callback, data);
  }
  return code;
}

bool FailWithCode(const char* what, int code, std::string* error) {
  *error = std::string(what) + ": " + g_strerror(code);
  return false;
}

}  // namespace quorvex::linux_service
