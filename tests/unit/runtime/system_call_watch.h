// SPDX-License-Identifier: Apache-2.0
//
// Sees every system call of a kind that some code makes, in order, and can make up its answer. It
// serves where a real fault cannot be had: a disk that fails to flush, an interrupted write.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace quorvex::test {

struct SystemCall {
  // For example "unlink".
  std::string name;
  std::array<std::uint64_t, 6> arguments{};
};

// What a watched call gets: the kernel's own doing, or an answer with nothing done.
class Answer {
 public:
  static Answer Proceed() { return {true, 0, 0}; }
  static Answer Fail(int errorNumber) { return {false, -errorNumber, 0}; }
  static Answer Return(std::int64_t value) { return {false, 0, value}; }

  [[nodiscard]] bool Proceeds() const { return proceeds; }
  // As the kernel takes it: zero or a negative error number.
  [[nodiscard]] int Error() const { return error; }
  [[nodiscard]] std::int64_t Value() const { return value; }

 private:
  Answer(bool callProceeds, int callError, std::int64_t callValue)
      : proceeds(callProceeds), error(callError), value(callValue) {}
  bool proceeds;
  int error;
  std::int64_t value;
};

// Asked on the thread that watches, while the calling thread stands still. Both share memory and
// descriptors.
using Judge = std::function<Answer(const SystemCall& call)>;

// Runs `body` on a thread of its own (threads that it starts are watched with it) and returns its
// calls of the named kinds. One watch at a time.
[[nodiscard]] std::vector<SystemCall> Watch(const std::vector<const char*>& names,
                                            const Judge& judge, const std::function<void()>& body);

}  // namespace quorvex::test
