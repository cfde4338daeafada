// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>

#include <utility>

namespace quorvex::linux_service {

// Owns a file descriptor; a negative number is none.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int value) : fd(value) {}
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  FileDescriptor(FileDescriptor&& other) noexcept : fd(std::exchange(other.fd, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(fd, other.fd);
    return *this;
  }
  ~FileDescriptor() {
    if (IsOpen()) {
      // What was written has been flushed; a failing close has nothing more to tell.
      static_cast<void>(close(fd));
    }
  }
  [[nodiscard]] bool IsOpen() const { return fd >= 0; }
  [[nodiscard]] int Get() const { return fd; }

 private:
  int fd = -1;
};

}  // namespace quorvex::linux_service
