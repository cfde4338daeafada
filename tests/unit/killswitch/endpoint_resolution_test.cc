// SPDX-License-Identifier: Apache-2.0
//
// The system's own resolver, with a hosts file of the test's own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>

#include "killswitch/kill_switch.h"
#include "tests/unit/runtime/private_world.h"

namespace quorvex::linux_service {
namespace {

using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

// A file in place of another one, until the end of the test.
class Replacement {
 public:
  Replacement(const char* replacedPath, const std::string& contents) : path(replacedPath) {
    const std::string source = std::string(test::kScratch) + replacedPath;
    test::WriteFile(source, contents);
    EXPECT_EQ(mount(source.c_str(), path, nullptr, MS_BIND, nullptr), 0) << path;
  }
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;
  ~Replacement() { EXPECT_EQ(umount2(path, MNT_DETACH), 0) << path; }

 private:
  const char* path;
};

class AHostName : public test::PrivateWorld {
 protected:
  void SetUp() override {
    PrivateWorld::SetUp();
    names = std::make_unique<Replacement>("/etc/hosts",
                                          "192.0.2.1 both.example\n2001:db8::1 both.example\n"
                                          "192.0.2.4 four.example\n2001:db8::6 six.example\n"
                                          "192.0.2.7 several.example\n192.0.2.8 several.example\n");
    sources = std::make_unique<Replacement>("/etc/nsswitch.conf", "hosts: files\n");
  }
  void TearDown() override {
    names.reset();
    sources.reset();
    PrivateWorld::TearDown();
  }
  static std::vector<std::string> Resolve(const std::string& host) {
    return CollectEndpointAddresses(EngineKind::kWireGuard, "Endpoint = " + host + ":51820\n");
  }

 private:
  std::unique_ptr<Replacement> names;
  std::unique_ptr<Replacement> sources;
};

TEST_F(AHostName, GivesItsAddressesOfBothFamilies) {
  EXPECT_THAT(Resolve("both.example"), UnorderedElementsAre("192.0.2.1", "2001:db8::1"));
}

TEST_F(AHostName, GivesEachOfItsAddressesOnce) {
  EXPECT_THAT(Resolve("several.example"), UnorderedElementsAre("192.0.2.7", "192.0.2.8"));
}

TEST_F(AHostName, GivesTheOnlyAddressItHas) {
  EXPECT_THAT(Resolve("four.example"), UnorderedElementsAre("192.0.2.4"));
  EXPECT_THAT(Resolve("six.example"), UnorderedElementsAre("2001:db8::6"));
}

TEST_F(AHostName, GivesNothingWhenNobodyKnowsIt) {
  EXPECT_THAT(Resolve("nobody.example"), IsEmpty());
  EXPECT_THAT(Resolve(std::string(255, 'h')), IsEmpty());
}

TEST_F(AHostName, ThatFailsLeavesTheOthersAndPrintsNothing) {
  ::testing::internal::CaptureStderr();
  EXPECT_THAT(CollectEndpointAddresses(EngineKind::kOpenVpn,
                                       "remote nobody.example\nremote four.example\n"),
              UnorderedElementsAre("192.0.2.4"));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

}  // namespace
}  // namespace quorvex::linux_service
