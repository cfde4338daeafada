// SPDX-License-Identifier: Apache-2.0
//
// What tests of real files and real programs share: a fixture that refuses to run outside a world
// of its own, and stand-ins for the programs that the service runs by absolute path.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace quorvex::test {

// The whole file; an unreadable one fails the test and reads as empty.
[[nodiscard]] std::string ReadFile(const std::string& path);

// Writes a file anew, with the folders above it. Whatever stood at `path` is replaced, never
// written through.
void WriteFile(const std::string& path, const std::string& contents, mode_t mode = 0644);

// Whether anything stands at `path`, a dangling symbolic link included.
[[nodiscard]] bool Exists(const std::string& path);

// The permission bits, for example 0600.
[[nodiscard]] mode_t ModeOf(const std::string& path);

// Asks until the answer is yes, for ten seconds at most.
[[nodiscard]] bool Eventually(const std::function<bool()>& condition);

// Runs a shell script with the system's own tools and fails the test when it fails.
void Shell(const std::string& script);

// A test in a machine of its own: /run, /usr/bin, /usr/sbin, /usr/libexec, the network and the
// processes are private, so it may replace programs and write to the service's real paths. Every
// test begins without runtime files and without recorded calls, and leaves the programs as they
// were.
class PrivateWorld : public ::testing::Test {
 public:
  PrivateWorld();
  ~PrivateWorld() override;

 protected:
  void SetUp() override;
  void TearDown() override;

  // Puts a shell script in place of the program. It serves for faults and for exact recording;
  // what the real program does is not shown by it.
  void StandIn(const std::string& path, const std::string& script);
  // A stand-in that first writes its call down.
  void Record(const std::string& path, const std::string& script = "exit 0");
  // As if the program, data file or link were not installed.
  void Uninstall(const std::string& path);

  // The recorded calls in order: path and arguments, each argument in angle brackets.
  [[nodiscard]] static std::vector<std::string> Calls();

 private:
  // Moves what stands at a path aside; its destructor puts it back.
  class Displaced;
  // Leaves nothing at the path, until the end of the test.
  void Displace(const std::string& path);
  std::vector<std::unique_ptr<Displaced>> displaced;
};

// A folder for a test's own files, empty at its beginning.
inline constexpr char kScratch[] = "/run/scratch";

}  // namespace quorvex::test
