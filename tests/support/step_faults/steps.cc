// SPDX-License-Identifier: Apache-2.0
#include "tests/support/step_faults/steps.h"

#include <fcntl.h>
#include <linux/sched.h>
#include <sys/syscall.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "tests/support/step_faults/descriptors.h"
#include "tests/support/step_faults/memory.h"

namespace step_faults {
namespace {

// What a call works on, which decides how it is named and whether it counts.
enum class Target { kPath, kOpening, kDescriptor, kSignal, kChild, kChildByRecord };

struct Kind {
  long number;
  const char* name;
  Target target;
  // Which argument says the target. The flags of an opening come next to its path.
  std::size_t argument;
  // A file's, where the target is a descriptor.
  int usualError;
};

constexpr std::array kKinds = {
    Kind{SYS_open, "open", Target::kOpening, 0, EACCES},
    Kind{SYS_openat, "open", Target::kOpening, 1, EACCES},
    Kind{SYS_write, "write", Target::kDescriptor, 0, ENOSPC},
    Kind{SYS_writev, "writev", Target::kDescriptor, 0, ENOSPC},
    Kind{SYS_pwrite64, "pwrite", Target::kDescriptor, 0, ENOSPC},
    Kind{SYS_sendto, "sendto", Target::kDescriptor, 0, ENOBUFS},
    Kind{SYS_sendmsg, "sendmsg", Target::kDescriptor, 0, ENOBUFS},
    Kind{SYS_sendmmsg, "sendmmsg", Target::kDescriptor, 0, ENOBUFS},
    Kind{SYS_connect, "connect", Target::kDescriptor, 0, ECONNREFUSED},
    Kind{SYS_mkdir, "mkdir", Target::kPath, 0, ENOSPC},
    Kind{SYS_mkdirat, "mkdir", Target::kPath, 1, ENOSPC},
    Kind{SYS_rmdir, "rmdir", Target::kPath, 0, EBUSY},
    Kind{SYS_chmod, "chmod", Target::kPath, 0, EPERM},
    Kind{SYS_fchmodat, "chmod", Target::kPath, 1, EPERM},
    Kind{SYS_fchmod, "fchmod", Target::kDescriptor, 0, EPERM},
    Kind{SYS_fchown, "fchown", Target::kDescriptor, 0, EPERM},
    Kind{SYS_unlink, "unlink", Target::kPath, 0, EBUSY},
    Kind{SYS_unlinkat, "unlink", Target::kPath, 1, EBUSY},
    Kind{SYS_rename, "rename", Target::kPath, 0, EBUSY},
    Kind{SYS_renameat, "rename", Target::kPath, 1, EBUSY},
    Kind{SYS_renameat2, "rename", Target::kPath, 1, EBUSY},
    Kind{SYS_link, "link", Target::kPath, 1, EEXIST},
    Kind{SYS_symlink, "symlink", Target::kPath, 1, EEXIST},
    Kind{SYS_fsync, "fsync", Target::kDescriptor, 0, EIO},
    Kind{SYS_fdatasync, "fdatasync", Target::kDescriptor, 0, EIO},
    Kind{SYS_ftruncate, "ftruncate", Target::kDescriptor, 0, EIO},
    Kind{SYS_fallocate, "fallocate", Target::kDescriptor, 0, ENOSPC},
    Kind{SYS_clone, "start a process", Target::kChild, 0, EAGAIN},
    Kind{SYS_clone3, "start a process", Target::kChildByRecord, 0, EAGAIN},
    Kind{SYS_fork, "start a process", Target::kChild, 0, EAGAIN},
    Kind{SYS_vfork, "start a process", Target::kChild, 0, EAGAIN},
    Kind{SYS_kill, "kill", Target::kSignal, 1, EPERM},
    Kind{SYS_pidfd_send_signal, "kill", Target::kSignal, 1, EPERM},
};

std::optional<Step> OpeningStep(const Kind& kind, const Call& call, std::string path) {
  const std::uint64_t flags = call.arguments[kind.argument + 1];
  const bool onlyReads = (flags & O_ACCMODE) == O_RDONLY && (flags & (O_CREAT | O_TRUNC)) == 0;
  if (onlyReads || path == "/dev/null") {
    return std::nullopt;
  }
  return Step{std::string(kind.name) + " " + path, kind.usualError};
}

std::optional<Step> DescriptorStep(const Kind& kind, const Call& call) {
  const Opened opened = WhatIsOpened(call.process, static_cast<int>(call.arguments[0]));
  std::string text = std::string(kind.name) + " " + opened.name;
  switch (opened.kind) {
    case Opened::Kind::kNothing:
      return std::nullopt;
    case Opened::Kind::kPipe:
    case Opened::Kind::kUnixSocket:
      return Step{std::move(text), kind.number == SYS_connect ? kind.usualError : EPIPE};
    case Opened::Kind::kNetlink:
      return Step{std::move(text), ENOBUFS};
    case Opened::Kind::kOtherSocket:
      return Step{std::move(text), ENETUNREACH};
    case Opened::Kind::kFile:
      break;
  }
  return Step{std::move(text), kind.usualError};
}

// A new thread is the process's own affair.
std::optional<Step> ChildStep(const Kind& kind, std::uint64_t flags) {
  if ((flags & CLONE_THREAD) != 0) {
    return std::nullopt;
  }
  return Step{kind.name, kind.usualError};
}

bool HasNoFlags(long number) {
  return number == SYS_fork || number == SYS_vfork;
}

std::optional<Step> DescribeStep(const Kind& kind, const Call& call) {
  const std::uint64_t argument = call.arguments[kind.argument];
  switch (kind.target) {
    case Target::kPath:
      return Step{std::string(kind.name) + " " + ReadText(call.process, argument), kind.usualError};
    case Target::kOpening:
      return OpeningStep(kind, call, ReadText(call.process, argument));
    case Target::kDescriptor:
      return DescriptorStep(kind, call);
    case Target::kSignal:
      // Zero only asks whether the process is there.
      if (argument == 0) {
        return std::nullopt;
      }
      return Step{std::string(kind.name) + " " + sigabbrev_np(static_cast<int>(argument)),
                  kind.usualError};
    case Target::kChild:
      return ChildStep(kind, HasNoFlags(kind.number) ? 0 : argument);
    case Target::kChildByRecord:
      // The record begins with the flags.
      return ChildStep(kind, ReadNumber(call.process, argument));
  }
  return std::nullopt;
}

}  // namespace

std::optional<Step> StepOf(const Call& call) {
  const auto isThis = [&call](const Kind& kind) {
    return static_cast<std::uint64_t>(kind.number) == call.number;
  };
  const auto* kind = std::ranges::find_if(kKinds, isThis);
  return kind == kKinds.end() ? std::nullopt : DescribeStep(*kind, call);
}

}  // namespace step_faults
