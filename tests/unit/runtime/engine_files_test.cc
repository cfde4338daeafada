// SPDX-License-Identifier: Apache-2.0
#include "runtime/engine_files.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "runtime/constants.h"
#include "tests/unit/runtime/case_name.h"
#include "tests/unit/runtime/private_world.h"

namespace quorvex::linux_service {
namespace {

namespace fs = std::filesystem;
using test::Exists;
using test::ReadFile;
using test::WriteFile;

constexpr char kUntouched[] = "as before";
const std::vector<std::string> kRevert = {"/usr/libexec/quorvexvpn-dns <revert>"};

// Every engine has left its files; the DNS tools are stand-ins that record and succeed.
class LeftFiles : public test::PrivateWorld {
 protected:
  void SetUp() override {
    PrivateWorld::SetUp();
    for (const char* file :
         {kWireGuardConfig, kSingBoxConfig, kXrayConfig, kOpenVpnConfig, kOpenVpnPid}) {
      WriteFile(file, "left");
    }
    Record(kDnsHelper);
    Record(kResolveCtl);
  }
  [[nodiscard]] static std::set<std::string> Remaining() {
    std::set<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(kRuntimeDirectory)) {
      names.insert(entry.path().filename());
    }
    return names;
  }
  std::string error = kUntouched;
};

struct KindCase {
  const char* name;
  EngineKind kind;
  std::set<std::string> remaining;
};

class AnEnginesFiles : public LeftFiles, public ::testing::WithParamInterface<KindCase> {};

INSTANTIATE_TEST_SUITE_P(
    Kinds, AnEnginesFiles,
    ::testing::Values(
        KindCase{"SingBox",
                 EngineKind::kSingBox,
                 {"openvpn.ovpn", "openvpn.pid", "quorvexvpn.conf", "xray.json"}},
        KindCase{"Xray",
                 EngineKind::kXray,
                 {"openvpn.ovpn", "openvpn.pid", "quorvexvpn.conf", "sing-box.json"}},
        KindCase{"WireGuard",
                 EngineKind::kWireGuard,
                 {"openvpn.ovpn", "openvpn.pid", "sing-box.json", "xray.json"}},
        KindCase{
            "OpenVpn", EngineKind::kOpenVpn, {"quorvexvpn.conf", "sing-box.json", "xray.json"}},
        KindCase{"Unsupported",
                 EngineKind::kUnsupported,
                 {"openvpn.ovpn", "openvpn.pid", "quorvexvpn.conf", "sing-box.json", "xray.json"}},
        KindCase{"UnknownValue",
                 static_cast<EngineKind>(7),
                 {"openvpn.ovpn", "openvpn.pid", "quorvexvpn.conf", "sing-box.json", "xray.json"}}),
    test::CaseName());

TEST_P(AnEnginesFiles, GoAndNoOthers) {
  EXPECT_TRUE(RemoveConfigFor(GetParam().kind, &error));
  EXPECT_EQ(error, kUntouched);
  EXPECT_EQ(Remaining(), GetParam().remaining);
}

TEST_P(AnEnginesFiles, MayBeGoneAlready) {
  fs::remove_all(kRuntimeDirectory);
  EXPECT_TRUE(RemoveConfigFor(GetParam().kind, &error));
  EXPECT_EQ(error, kUntouched);
}

TEST_P(AnEnginesFiles, GoWithoutAnyToolUnlessTheyAreOpenVpns) {
  static_cast<void>(RemoveConfigFor(GetParam().kind, &error));
  const bool openVpn = GetParam().kind == EngineKind::kOpenVpn;
  EXPECT_EQ(Calls(), openVpn ? kRevert : std::vector<std::string>{});
}

struct ConfigCase {
  const char* name;
  EngineKind kind;
  const char* path;
};

class AnEnginesConfiguration : public LeftFiles,
                               public ::testing::WithParamInterface<ConfigCase> {};

INSTANTIATE_TEST_SUITE_P(
    Paths, AnEnginesConfiguration,
    ::testing::Values(ConfigCase{"SingBox", EngineKind::kSingBox, kSingBoxConfig},
                      ConfigCase{"Xray", EngineKind::kXray, kXrayConfig},
                      ConfigCase{"WireGuard", EngineKind::kWireGuard, kWireGuardConfig},
                      ConfigCase{"OpenVpn", EngineKind::kOpenVpn, kOpenVpnConfig}),
    test::CaseName());

TEST_P(AnEnginesConfiguration, IsWipedBeforeItGoes) {
  fs::create_hard_link(GetParam().path, "/run/quorvexvpn/second-name");
  EXPECT_TRUE(RemoveConfigFor(GetParam().kind, &error));
  EXPECT_EQ(ReadFile("/run/quorvexvpn/second-name"), std::string(4, '\0'));
}

TEST_P(AnEnginesConfiguration, ThatCannotBeRemovedIsReported) {
  fs::remove(GetParam().path);
  fs::create_directory(GetParam().path);
  EXPECT_FALSE(RemoveConfigFor(GetParam().kind, &error));
  EXPECT_EQ(error, "Unable to open private runtime data for removal: Is a directory");
}

class OpenVpnsFiles : public LeftFiles {
 protected:
  bool Remove() { return RemoveConfigFor(EngineKind::kOpenVpn, &error); }
  static void ExpectFilesGone() {
    EXPECT_FALSE(Exists(kOpenVpnPid));
    EXPECT_FALSE(Exists(kOpenVpnConfig));
  }
};

TEST_F(OpenVpnsFiles, StayWhenTheDnsRevertFails) {
  Record(kDnsHelper, "exit 1");
  EXPECT_FALSE(Remove());
  EXPECT_EQ(error, "Unable to revert OpenVPN DNS state.");
  EXPECT_EQ(Calls(), kRevert);
  EXPECT_EQ(ReadFile(kOpenVpnPid), "left");
  EXPECT_EQ(ReadFile(kOpenVpnConfig), "left");
}

TEST_F(OpenVpnsFiles, StayWhenTheRevertCannotBeRunUnderTimeout) {
  Uninstall(kTimeoutBinary);
  EXPECT_FALSE(Remove());
  EXPECT_EQ(error, "Unable to revert OpenVPN DNS state.");
  EXPECT_TRUE(Exists(kOpenVpnConfig));
}

TEST_F(OpenVpnsFiles, AreStillThereDuringTheDnsRevert) {
  Record(kDnsHelper, "test -e /run/quorvexvpn/openvpn.pid -a -e /run/quorvexvpn/openvpn.ovpn");
  EXPECT_TRUE(Remove());
  ExpectFilesGone();
}

TEST_F(OpenVpnsFiles, GoWithoutARevertWhenTheHelperIsMissing) {
  Uninstall(kDnsHelper);
  EXPECT_TRUE(Remove());
  EXPECT_TRUE(Calls().empty());
  ExpectFilesGone();
}

TEST_F(OpenVpnsFiles, GoWithoutARevertWhenTheHelperMayNotBeExecuted) {
  fs::permissions(kDnsHelper, fs::perms::owner_read);
  EXPECT_TRUE(Remove());
  EXPECT_TRUE(Calls().empty());
  ExpectFilesGone();
}

TEST_F(OpenVpnsFiles, GoWithoutARevertWhenResolvectlIsMissing) {
  Uninstall(kResolveCtl);
  EXPECT_TRUE(Remove());
  EXPECT_TRUE(Calls().empty());
  ExpectFilesGone();
}

TEST_F(OpenVpnsFiles, IncludeAPidFileThatIsASymbolicLink) {
  WriteFile("/run/scratch/target", "theirs");
  fs::remove(kOpenVpnPid);
  fs::create_symlink("/run/scratch/target", kOpenVpnPid);
  EXPECT_TRUE(Remove());
  EXPECT_EQ(error, kUntouched);
  ExpectFilesGone();
  EXPECT_EQ(ReadFile("/run/scratch/target"), "theirs");
}

TEST_F(OpenVpnsFiles, GoEvenIfThePidFileCannotGo) {
  fs::remove(kOpenVpnPid);
  fs::create_directory(kOpenVpnPid);
  EXPECT_TRUE(Remove());
  EXPECT_EQ(error, kUntouched);
  EXPECT_TRUE(fs::is_directory(kOpenVpnPid));
  EXPECT_FALSE(Exists(kOpenVpnConfig));
}

TEST_F(OpenVpnsFiles, LoseThePidFileBeforeTheConfigurationIsTried) {
  fs::remove(kOpenVpnConfig);
  fs::create_directory(kOpenVpnConfig);
  EXPECT_FALSE(Remove());
  EXPECT_FALSE(Exists(kOpenVpnPid));
}

}  // namespace
}  // namespace quorvex::linux_service
