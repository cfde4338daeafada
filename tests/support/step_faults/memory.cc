// SPDX-License-Identifier: Apache-2.0
#include "tests/support/step_faults/memory.h"

#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <climits>

namespace step_faults {
namespace {

constexpr std::size_t kPage = 4096;

iovec At(std::uint64_t address, std::size_t size) {
  return {reinterpret_cast<void*>(address), size};
}

}  // namespace

std::string ReadText(pid_t process, std::uint64_t address) {
  std::array<char, PATH_MAX + 1> text{};
  const iovec ours = {text.data(), PATH_MAX};
  // In two pieces: behind a text that ends before the next page, nothing may be readable.
  const std::size_t first = std::min<std::size_t>(PATH_MAX, kPage - address % kPage);
  const std::array theirs = {At(address, first), At(address + first, PATH_MAX - first)};
  const ssize_t read = process_vm_readv(process, &ours, 1, theirs.data(), theirs.size(), 0);
  return read > 0 ? text.data() : "?";
}

std::uint64_t ReadNumber(pid_t process, std::uint64_t address) {
  std::uint64_t number = 0;
  const iovec ours = {&number, sizeof number};
  const iovec theirs = At(address, sizeof number);
  static_cast<void>(process_vm_readv(process, &ours, 1, &theirs, 1, 0));
  return number;
}

}  // namespace step_faults
