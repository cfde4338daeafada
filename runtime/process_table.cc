// SPDX-License-Identifier: Apache-2.0
#include "runtime/process_table.h"

#include <glib.h>
#include <poll.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <sstream>
#include <string_view>

// glibc 2.36 declares these functions for C only.
extern "C" {
#include <sys/pidfd.h>
}

#include "runtime/glib_ptr.h"

namespace quorvex::linux_service {
namespace {

using Clock = std::chrono::steady_clock;
using DirectoryPtr = std::unique_ptr<GDir, ReleaseWith<g_dir_close>>;
using CPathPtr = std::unique_ptr<char, ReleaseWith<std::free>>;

// What the kernel adds to the name of a file that has been replaced or removed.
constexpr std::string_view kReplaced = " (deleted)";

std::string ProcPath(pid_t pid, const char* name) {
  return "/proc/" + std::to_string(pid) + "/" + name;
}

std::optional<pid_t> ReadPid(std::string_view text) {
  pid_t pid = 0;
  const auto [rest, failure] = std::from_chars(text.data(), text.data() + text.size(), pid);
  const bool isNumber = failure == std::errc() && rest == text.data() + text.size();
  return isNumber ? std::optional(pid) : std::nullopt;
}

std::vector<pid_t> ListPids() {
  std::vector<pid_t> pids;
  const DirectoryPtr directory(g_dir_open("/proc", 0, nullptr));
  const char* name = directory == nullptr ? nullptr : g_dir_read_name(directory.get());
  for (; name != nullptr; name = g_dir_read_name(directory.get())) {
    if (const std::optional<pid_t> pid = ReadPid(name)) {
      pids.push_back(*pid);
    }
  }
  return pids;
}

std::string ReadFile(const std::string& path) {
  char* contents = nullptr;
  gsize size = 0;
  if (g_file_get_contents(path.c_str(), &contents, &size, nullptr) == FALSE) {
    return {};
  }
  const GCharPtr owner(contents);
  return {contents, size};
}

std::string ReadProgramLink(const std::string& path) {
  const GCharPtr target(g_file_read_link(path.c_str(), nullptr));
  std::string text = target == nullptr ? "" : target.get();
  if (text.ends_with(kReplaced)) {
    text.erase(text.size() - kReplaced.size());
  }
  return text;
}

std::vector<std::string> ReadArguments(pid_t pid) {
  std::vector<std::string> arguments;
  const std::string text = ReadFile(ProcPath(pid, "cmdline"));
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\0', begin), text.size());
    arguments.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return arguments;
}

// The fourth and fifth field of the line; the second, in brackets, may itself hold blanks and
// brackets.
void ReadLineage(pid_t pid, RunningProcess* process) {
  const std::string text = ReadFile(ProcPath(pid, "stat"));
  const std::size_t name = text.rfind(") ");
  if (name == std::string::npos) {
    return;
  }
  std::istringstream fields(text.substr(name + 2));
  char state = '\0';
  fields >> state >> process->parent >> process->group;
}

// Of the same user and in the same network.
bool IsOneOfUs(pid_t pid) {
  struct stat process = {};
  struct stat theirs = {};
  struct stat ours = {};
  return stat(ProcPath(pid, "").c_str(), &process) == 0 && process.st_uid == geteuid() &&
         stat(ProcPath(pid, "ns/net").c_str(), &theirs) == 0 &&
         stat("/proc/self/ns/net", &ours) == 0 && theirs.st_dev == ours.st_dev &&
         theirs.st_ino == ours.st_ino;
}

// The handle comes first: what is read afterwards is this process's or, if it has ended, nothing.
std::optional<RunningProcess> Look(pid_t pid) {
  RunningProcess process;
  process.handle = FileDescriptor(pidfd_open(pid, 0));
  process.pid = pid;
  ReadLineage(pid, &process);
  if (!process.handle.IsOpen() || process.parent == getpid() || !IsOneOfUs(pid)) {
    return std::nullopt;
  }
  process.program = ReadProgramLink(ProcPath(pid, "exe"));
  process.arguments = ReadArguments(pid);
  // Signal 0 asks whether the number still belonged to it when the last of this was read.
  return pidfd_send_signal(process.handle.Get(), 0, nullptr, 0) == 0
             ? std::optional(std::move(process))
             : std::nullopt;
}

// Through links: /usr/sbin may be one.
std::string Canonical(const char* path) {
  const CPathPtr canonical(realpath(path, nullptr));
  return canonical == nullptr ? path : canonical.get();
}

void Signal(const std::vector<RunningProcess>& processes, int number) {
  for (const RunningProcess& process : processes) {
    // Fails only when the process has ended, which is what the signal is for.
    static_cast<void>(pidfd_send_signal(process.handle.Get(), number, nullptr, 0));
  }
}

bool EndBy(const RunningProcess& process, Clock::time_point deadline) {
  pollfd ended = {process.handle.Get(), POLLIN, 0};
  while (true) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    const int ready = poll(&ended, 1, static_cast<int>(std::max<std::int64_t>(left, 0)));
    if (ready >= 0 || errno != EINTR) {
      return ready > 0;
    }
  }
}

}  // namespace

std::vector<RunningProcess> FindProcesses(
    const std::function<bool(const RunningProcess&)>& wanted) {
  std::vector<RunningProcess> found;
  for (const pid_t pid : ListPids()) {
    std::optional<RunningProcess> process = pid == getpid() ? std::nullopt : Look(pid);
    if (process && wanted(*process)) {
      found.push_back(std::move(*process));
    }
  }
  return found;
}

bool RunsProgram(const RunningProcess& process, const char* path) {
  return process.program == Canonical(path);
}

bool HasArgument(const RunningProcess& process, const std::string& argument) {
  return std::ranges::find(process.arguments, argument) != process.arguments.end();
}

bool HoldsFile(const char* pid, const std::string& path) {
  if (pid == nullptr || *pid == '\0') {
    return false;
  }
  const std::string folder = std::string("/proc/") + pid + "/fd";
  const DirectoryPtr directory(g_dir_open(folder.c_str(), 0, nullptr));
  const char* name = directory == nullptr ? nullptr : g_dir_read_name(directory.get());
  for (; name != nullptr; name = g_dir_read_name(directory.get())) {
    const GCharPtr target(g_file_read_link((folder + "/" + name).c_str(), nullptr));
    if (target != nullptr && path == target.get()) {
      return true;
    }
  }
  return false;
}

bool AwaitEnd(const std::vector<RunningProcess>& processes, std::chrono::milliseconds patience) {
  const Clock::time_point deadline = Clock::now() + patience;
  return std::ranges::all_of(
      processes, [deadline](const RunningProcess& process) { return EndBy(process, deadline); });
}

bool EndProcesses(const std::vector<RunningProcess>& processes,
                  std::chrono::milliseconds patience) {
  Signal(processes, SIGTERM);
  if (AwaitEnd(processes, patience)) {
    return true;
  }
  Signal(processes, SIGKILL);
  return AwaitEnd(processes, patience);
}

}  // namespace quorvex::linux_service
