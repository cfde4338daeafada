// SPDX-License-Identifier: Apache-2.0
#include "service/dictionaries.h"

#include <gtest/gtest.h>

#include "service/dictionary_builder.h"
#include "tests/unit/runtime/case_name.h"
#include "tests/unit/service/service_fixture.h"

namespace quorvex::service_front {
namespace {

using test::Print;

// Parses GLib's text format.
GVariantPtr Parse(const char* text) {
  GErrorSlot error;
  GVariant* value = g_variant_parse(G_VARIANT_TYPE_VARDICT, text, nullptr, nullptr, error.Out());
  EXPECT_NE(value, nullptr) << error.MessageOr("");
  return GVariantPtr(value);
}

struct StringCase {
  const char* name;
  const char* dictionary;
  const char* found;
};

class AStringEntry : public ::testing::TestWithParam<StringCase> {};

INSTANTIATE_TEST_SUITE_P(
    Cases, AStringEntry,
    ::testing::Values(StringCase{"There", "{'id': <'p1'>, 'other': <'x'>}", "p1"},
                      StringCase{"EmptyText", "{'id': <''>}", ""},
                      StringCase{"NotAscii", "{'id': <'\xc3\xa4'>}", "\xc3\xa4"},
                      StringCase{"Missing", "{'other': <'x'>}", ""},
                      StringCase{"EmptyDictionary", "{}", ""},
                      StringCase{"KeyInOtherLetters", "{'Id': <'x'>}", ""},
                      StringCase{"Boolean", "{'id': <true>}", ""},
                      StringCase{"Number", "{'id': <1>}", ""},
                      StringCase{"ObjectPath", "{'id': <objectpath '/a'>}", ""},
                      StringCase{"Bytes", "{'id': <b'p1'>}", ""},
                      StringCase{"ListOfStrings", "{'id': <['p1']>}", ""},
                      StringCase{"StringInAVariant", "{'id': <<'p1'>>}", ""}),
    test::CaseName());

TEST_P(AStringEntry, IsReadOrCountsAsEmpty) {
  EXPECT_EQ(LookupString(Parse(GetParam().dictionary).get(), "id"), GetParam().found);
}

TEST(NoDictionary, HasNoStrings) {
  EXPECT_EQ(LookupString(nullptr, "id"), "");
}

TEST(NoDictionary, HasNoBooleans) {
  EXPECT_FALSE(LookupBoolean(nullptr, "killSwitch", false));
  EXPECT_FALSE(LookupBoolean(nullptr, "killSwitch", true));
}

struct BooleanCase {
  const char* name;
  const char* dictionary;
  bool found;
};

class ABooleanEntry : public ::testing::TestWithParam<BooleanCase> {};

INSTANTIATE_TEST_SUITE_P(
    Cases, ABooleanEntry,
    ::testing::Values(BooleanCase{"True", "{'killSwitch': <true>}", true},
                      BooleanCase{"False", "{'killSwitch': <false>}", false},
                      BooleanCase{"Missing", "{'other': <true>}", false},
                      BooleanCase{"EmptyDictionary", "{}", false},
                      BooleanCase{"KeyInOtherLetters", "{'killswitch': <true>}", false},
                      BooleanCase{"String", "{'killSwitch': <'true'>}", false},
                      BooleanCase{"Number", "{'killSwitch': <1>}", false},
                      BooleanCase{"BooleanInAVariant", "{'killSwitch': <<true>>}", false}),
    test::CaseName());

TEST_P(ABooleanEntry, IsReadOrCountsAsFalseWhateverTheFallback) {
  const GVariantPtr dictionary = Parse(GetParam().dictionary);
  EXPECT_EQ(LookupBoolean(dictionary.get(), "killSwitch", false), GetParam().found);
  EXPECT_EQ(LookupBoolean(dictionary.get(), "killSwitch", true), GetParam().found);
}

TEST(ADictionary, KeepsTheOrderAndTheTypesOfItsEntries) {
  DictionaryBuilder builder;
  builder.AddString("z", "text");
  builder.AddBoolean("a", true);
  builder.AddBoolean("m", false);
  builder.AddInt64("b", -5);
  builder.Add("list", g_variant_new_uint32(7));
  const GVariantPtr dictionary = builder.End();
  EXPECT_EQ(Print(dictionary),
            "{'z': <'text'>, 'a': <true>, 'm': <false>, 'b': <int64 -5>, 'list': <uint32 7>}");
  EXPECT_FALSE(g_variant_is_floating(dictionary.get()));
}

TEST(ADictionary, MayBeEmpty) {
  DictionaryBuilder builder;
  EXPECT_EQ(Print(builder.End()), "@a{sv} {}");
}

TEST(ADictionary, MayBeGivenUpBeforeItsEnd) {
  DictionaryBuilder builder;
  builder.AddString("key", "a sanitizer would see the text leak");
}

TEST(TheCapabilities, AreConstant) {
  EXPECT_EQ(Print(CapabilityDictionary()),
            "{'supportsLifecycle': <true>, 'supportsTrafficStats': <false>, "
            "'supportsSplitTunnel': <false>, 'supportedProtocols': <['singBox', 'vless', 'vmess', "
            "'trojan', 'shadowsocks', 'hysteria2', 'tuic', 'dravo', 'xray-reality', 'xray', "
            "'wireGuard', 'amneziawg', 'openVpn', 'openvpn-tcp', 'openvpn-udp']>}");
  EXPECT_FALSE(g_variant_is_floating(CapabilityDictionary().get()));
}

using linux_service::EngineForProtocol;
using linux_service::EngineKind;

TEST(TheCapabilities, NameOnlyProtocolsThatSelectAnEngine) {
  const GVariantPtr capabilities = CapabilityDictionary();
  GVariantIter* protocols = nullptr;
  ASSERT_TRUE(g_variant_lookup(capabilities.get(), "supportedProtocols", "as", &protocols));
  const char* protocol = nullptr;
  while (g_variant_iter_next(protocols, "&s", &protocol) != FALSE) {
    EXPECT_NE(EngineForProtocol(protocol), EngineKind::kUnsupported) << protocol;
  }
  g_variant_iter_free(protocols);
}

// The engines' files are stand-ins: what they do is of no interest here.
class TheRuntimeInfo : public test::ServiceTest {
 protected:
  void SetUp() override {
    ServiceTest::SetUp();
    using namespace linux_service;
    for (const char* program : {kSingBoxBinary, kXrayBinary, kOpenVpnBinary, kResolveCtl,
                                kDnsHelper, kXrayGeoIp, kXrayGeoSite}) {
      StandIn(program, "exit 0");
    }
  }
  [[nodiscard]] std::string Info() const { return Print(RuntimeDictionary(*service)); }
};

TEST_F(TheRuntimeInfo, ListsAnInstallationThatIsComplete) {
  EXPECT_EQ(Info(),
            "{'platformName': <'linux'>, 'summary': <'Sing-box ready; Xray ready; WireGuard ready; "
            "OpenVPN ready'>, 'nativeBridgeReady': <true>, 'singBoxRuntimeDetected': <true>, "
            "'xrayRuntimeDetected': <true>, 'wireGuardRuntimeDetected': <true>, "
            "'openVpnRuntimeDetected': <true>}");
}

TEST_F(TheRuntimeInfo, AsksForARepairWhenSomethingMayBeLeft) {
  service->runtimeClean = false;
  EXPECT_EQ(Info(),
            "{'platformName': <'linux'>, 'summary': <'Sing-box ready; Xray ready; WireGuard ready; "
            "OpenVPN ready; cleanup repair required'>, 'nativeBridgeReady': <false>, "
            "'singBoxRuntimeDetected': <true>, 'xrayRuntimeDetected': <true>, "
            "'wireGuardRuntimeDetected': <true>, 'openVpnRuntimeDetected': <true>}");
}

TEST_F(TheRuntimeInfo, TellsTheEnginesApart) {
  Uninstall(linux_service::kXrayGeoIp);
  Uninstall(linux_service::kOpenVpnBinary);
  EXPECT_EQ(Info(),
            "{'platformName': <'linux'>, 'summary': <'Sing-box ready; Xray missing; WireGuard "
            "ready; OpenVPN missing'>, 'nativeBridgeReady': <false>, "
            "'singBoxRuntimeDetected': <true>, 'xrayRuntimeDetected': <false>, "
            "'wireGuardRuntimeDetected': <true>, 'openVpnRuntimeDetected': <false>}");
}

struct MissingCase {
  const char* name;
  const char* path;
  const char* key;
};

class AMissingEngine : public TheRuntimeInfo, public ::testing::WithParamInterface<MissingCase> {};

INSTANTIATE_TEST_SUITE_P(
    Each, AMissingEngine,
    ::testing::Values(
        MissingCase{"SingBox", linux_service::kSingBoxBinary, "singBoxRuntimeDetected"},
        MissingCase{"Xray", linux_service::kXrayBinary, "xrayRuntimeDetected"},
        MissingCase{"WireGuard", linux_service::kWireGuardTool, "wireGuardRuntimeDetected"},
        MissingCase{"OpenVpn", linux_service::kOpenVpnBinary, "openVpnRuntimeDetected"}),
    test::CaseName());

TEST_P(AMissingEngine, IsTheOnlyOneNotDetectedAndKeepsTheBridgeFromBeingReady) {
  Uninstall(GetParam().path);
  const GVariantPtr info = RuntimeDictionary(*service);
  for (const char* key : {"singBoxRuntimeDetected", "xrayRuntimeDetected",
                          "wireGuardRuntimeDetected", "openVpnRuntimeDetected"}) {
    EXPECT_EQ(LookupBoolean(info.get(), key, false), std::string(key) != GetParam().key) << key;
  }
  EXPECT_FALSE(LookupBoolean(info.get(), "nativeBridgeReady", false));
}

}  // namespace
}  // namespace quorvex::service_front
