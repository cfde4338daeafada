// SPDX-License-Identifier: Apache-2.0
#include "tests/support/step_faults/descriptors.h"

#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <climits>
#include <cstddef>

namespace step_faults {
namespace {

std::string LinkOf(pid_t process, int descriptor) {
  const std::string path = "/proc/" + std::to_string(process) + "/fd/" + std::to_string(descriptor);
  std::string target(PATH_MAX, '\0');
  const ssize_t length = readlink(path.c_str(), target.data(), target.size());
  target.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
  return target;
}

// A copy of another process's descriptor; negative when there is none.
int Borrow(pid_t process, int descriptor) {
  const int handle = static_cast<int>(syscall(SYS_pidfd_open, process, 0));
  if (handle < 0) {
    return -1;
  }
  const int copy = static_cast<int>(syscall(SYS_pidfd_getfd, handle, descriptor, 0));
  close(handle);
  return copy;
}

bool IsPairOf(pid_t process, int copy) {
  ucred peer{};
  socklen_t size = sizeof peer;
  return getsockopt(copy, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.pid == process;
}

Opened DescribeUnixSocket(pid_t process, int copy) {
  sockaddr_un peer{};
  socklen_t size = sizeof peer;
  const bool named = getpeername(copy, reinterpret_cast<sockaddr*>(&peer), &size) == 0 &&
                     size > offsetof(sockaddr_un, sun_path) && peer.sun_path[0] != '\0';
  if (!named && IsPairOf(process, copy)) {
    return {};
  }
  return {Opened::Kind::kUnixSocket, named ? peer.sun_path : "unix"};
}

Opened DescribeSocket(pid_t process, int descriptor) {
  const int copy = Borrow(process, descriptor);
  int domain = AF_UNSPEC;
  socklen_t size = sizeof domain;
  getsockopt(copy, SOL_SOCKET, SO_DOMAIN, &domain, &size);
  Opened opened{Opened::Kind::kOtherSocket, "socket"};
  if (domain == AF_UNIX) {
    opened = DescribeUnixSocket(process, copy);
  } else if (domain == AF_NETLINK) {
    opened = {Opened::Kind::kNetlink, "netlink"};
  }
  close(copy);
  return opened;
}

}  // namespace

Opened WhatIsOpened(pid_t process, int descriptor) {
  const std::string target = LinkOf(process, descriptor);
  if (target.starts_with("socket:")) {
    return DescribeSocket(process, descriptor);
  }
  if (target.starts_with("pipe:")) {
    return {Opened::Kind::kPipe, descriptor <= STDERR_FILENO ? "journal" : "pipe"};
  }
  if (!target.starts_with('/') || target == "/dev/null") {
    return {};
  }
  return {Opened::Kind::kFile, target};
}

}  // namespace step_faults
