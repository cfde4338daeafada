// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/runtime/private_world.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

namespace quorvex::test {
namespace {

namespace fs = std::filesystem;

constexpr char kCalls[] = "/run/scratch/.calls";
constexpr char kAside[] = ".displaced";

bool IsMountPoint(const std::string& directory) {
  std::ifstream mounts("/proc/self/mounts");
  for (std::string source, target, rest;
       mounts >> source >> target && std::getline(mounts, rest);) {
    if (target == directory) {
      return true;
    }
  }
  return false;
}

// On the machine itself none of these but /run is a mount of its own.
bool IsPrivateWorld() {
  return IsMountPoint("/run") && IsMountPoint("/usr/bin") && IsMountPoint("/usr/sbin") &&
         IsMountPoint("/usr/libexec");
}

}  // namespace

std::string ReadFile(const std::string& path) {
  const std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.is_open()) << path;
  std::ostringstream contents;
  if (file.is_open()) {
    contents << file.rdbuf();
  }
  return contents.str();
}

void WriteFile(const std::string& path, const std::string& contents, mode_t mode) {
  fs::create_directories(fs::path(path).parent_path());
  fs::remove(path);
  std::ofstream(path, std::ios::binary) << contents;
  ASSERT_EQ(chmod(path.c_str(), mode), 0) << path;
}

bool Exists(const std::string& path) {
  return fs::exists(fs::symlink_status(path));
}

mode_t ModeOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777;
}

bool Eventually(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

void Shell(const std::string& script) {
  ASSERT_EQ(std::system(script.c_str()), 0) << script;
}

class PrivateWorld::Displaced {
 public:
  explicit Displaced(std::string displacedPath)
      : path(std::move(displacedPath)), wasThere(Exists(path)) {
    if (wasThere) {
      fs::rename(path, path + kAside);
    }
  }
  Displaced(const Displaced&) = delete;
  Displaced& operator=(const Displaced&) = delete;
  ~Displaced() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
    if (wasThere) {
      fs::rename(path + kAside, path, ignored);
    }
  }
  [[nodiscard]] const std::string& Path() const { return path; }

 private:
  std::string path;
  bool wasThere;
};

PrivateWorld::PrivateWorld() = default;
PrivateWorld::~PrivateWorld() = default;

void PrivateWorld::SetUp() {
  ASSERT_TRUE(IsPrivateWorld())
      << "Run this under tests/support/private_run: it replaces programs.";
  fs::remove_all("/run/quorvexvpn");
  fs::remove_all(kScratch);
  fs::create_directories(kScratch);
}

void PrivateWorld::TearDown() {
  displaced.clear();
}

void PrivateWorld::Displace(const std::string& path) {
  if (std::ranges::find(displaced, path, &Displaced::Path) == displaced.end()) {
    displaced.push_back(std::make_unique<Displaced>(path));
  }
  fs::remove_all(path);
}

void PrivateWorld::StandIn(const std::string& path, const std::string& script) {
  Displace(path);
  WriteFile(path, "#!/bin/sh\n" + script + "\n", 0755);
}

void PrivateWorld::Record(const std::string& path, const std::string& script) {
  const std::string writeDown =
      "{ printf '%s' \"$0\"; [ $# = 0 ] || printf ' <%s>' \"$@\"; echo; } >>" + std::string(kCalls);
  StandIn(path, writeDown + "\n" + script);
}

void PrivateWorld::Uninstall(const std::string& path) {
  Displace(path);
}

std::vector<std::string> PrivateWorld::Calls() {
  std::vector<std::string> calls;
  std::ifstream file(kCalls);
  for (std::string line; std::getline(file, line);) {
    calls.push_back(line);
  }
  return calls;
}

}  // namespace quorvex::test
