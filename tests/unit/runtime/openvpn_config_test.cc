// SPDX-License-Identifier: Apache-2.0
#include "runtime/openvpn_config.h"

#include <gtest/gtest.h>

#include "tests/unit/runtime/case_name.h"

namespace quorvex::linux_service {
namespace {

struct RewriteCase {
  const char* name;
  std::string configuration;
  std::string expected;
};

class AnOpenVpnProfile : public ::testing::TestWithParam<RewriteCase> {};

TEST_P(AnOpenVpnProfile, IsPutOnTheServicesDevice) {
  EXPECT_EQ(RewriteOpenVpnConfig(GetParam().configuration), GetParam().expected);
}

// A case whose text only gains what it says.
RewriteCase Unchanged(const char* name, const std::string& text) {
  return {name, text, text};
}

INSTANTIATE_TEST_SUITE_P(
    WholeProfiles, AnOpenVpnProfile,
    ::testing::Values(
        RewriteCase{"Ordinary",
                    "client\nremote vpn.test 1194 udp\ndev tun\n<ca>\nAAAA\n</ca>\nverb 3\n",
                    "client\nremote vpn.test 1194 udp\ndev tun-quorvexvpn\n<ca>\nAAAA\n</ca>\n"
                    "verb 3\n"},
        Unchanged("WithoutADevice", "client\nremote vpn.test\n"), Unchanged("Empty", ""),
        Unchanged("OneLineFeed", "\n"), Unchanged("TwoLineFeeds", "\n\n"),
        RewriteCase{"WithoutItsLastLineFeed", "client", "client\n"},
        RewriteCase{"EndingWithItsDevice", "client\ndev tun5", "client\ndev tun-quorvexvpn\n"},
        RewriteCase{"EndingInABlock", "<ca>\nAAAA", "<ca>\nAAAA\n"}),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Devices, AnOpenVpnProfile,
    ::testing::Values(
        RewriteCase{"AnotherName", "dev tun5\n", "dev tun-quorvexvpn\n"},
        RewriteCase{"NoName", "dev\n", "dev tun-quorvexvpn\n"},
        RewriteCase{"Capitals", "DEV TUN5\n", "dev tun-quorvexvpn\n"},
        RewriteCase{"MixedLetters", "dEv tun\n", "dev tun-quorvexvpn\n"},
        RewriteCase{"CommandLineSpelling", "--dev tun5\n", "dev tun-quorvexvpn\n"},
        RewriteCase{"CommandLineSpellingInCapitals", "--DEV tun5\n", "dev tun-quorvexvpn\n"},
        RewriteCase{"Tabs", "\tdev\ttun5\t\n", "dev tun-quorvexvpn\n"},
        RewriteCase{"BlanksAround", "   dev   tun5   \n", "dev tun-quorvexvpn\n"},
        RewriteCase{"OtherWhiteSpace", "\v\fdev\v\ftun5\n", "dev tun-quorvexvpn\n"},
        RewriteCase{"CarriageReturn", "dev tun5\r\nclient\r\n", "dev tun-quorvexvpn\nclient\r\n"},
        RewriteCase{"CarriageReturnAlone", "dev\r\n", "dev tun-quorvexvpn\n"},
        RewriteCase{"MoreWords", "dev tun5 # mine\n", "dev tun-quorvexvpn\n"},
        RewriteCase{"Twice", "dev tun5\ndev tun6\n", "dev tun-quorvexvpn\ndev tun-quorvexvpn\n"}),
    test::CaseName());

// Lines that only look like the device.
INSTANTIATE_TEST_SUITE_P(
    OtherLines, AnOpenVpnProfile,
    ::testing::Values(Unchanged("DeviceType", "dev-type tun\n"),
                      Unchanged("DeviceNode", "device\n"), Unchanged("OneDash", "-dev tun5\n"),
                      Unchanged("ThreeDashes", "---dev tun5\n"),
                      Unchanged("DashesAlone", "--\n-- dev tun5\n"), Unchanged("Shorter", "de v\n"),
                      Unchanged("Commented", "# dev tun5\n#dev tun5\n;dev tun5\n; dev tun5\n"),
                      Unchanged("AsAnArgument", "remote dev 1194\n"),
                      Unchanged("Joined", "dev=tun5\ndev,tun5\n"),
                      Unchanged("BlanksAndTabsStay", "  client \t\n\t\n \n"),
                      Unchanged("CarriageReturnsStay", "client\r\n\r\nremote a\r\n"),
                      Unchanged("CarriageReturnInside", "client\rdev tun5\n"),
                      Unchanged("BytesStay", "# \xff\x80\xd0\xbf\n")),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    InlineBlocks, AnOpenVpnProfile,
    ::testing::Values(
        Unchanged("KeepTheirDevLines", "<ca>\ndev tun5\n--dev tun5\n</ca>\n"),
        RewriteCase{"EndAtTheirTag", "<ca>\ndev a\n</ca>\ndev a\n",
                    "<ca>\ndev a\n</ca>\ndev tun-quorvexvpn\n"},
        RewriteCase{"EndInOtherLetters", "<CA>\ndev a\n</cA>\ndev a\n",
                    "<CA>\ndev a\n</cA>\ndev tun-quorvexvpn\n"},
        RewriteCase{"OpenAndEndBetweenBlanks", " \t<ca>\t \ndev a\n  </ca>\t\ndev a\n",
                    " \t<ca>\t \ndev a\n  </ca>\t\ndev tun-quorvexvpn\n"},
        RewriteCase{"WithCarriageReturns", "<ca>\r\ndev a\r\n</ca>\r\ndev a\r\n",
                    "<ca>\r\ndev a\r\n</ca>\r\ndev tun-quorvexvpn\n"},
        Unchanged("DoNotEndAtAnotherTag", "<ca>\n</cert>\ndev a\n</c>\ndev a\n</caa>\ndev a\n"),
        Unchanged("DoNotEndWithMoreOnTheLine", "<ca>\n</ca> x\nx</ca>\n</ca >\n< /ca>\ndev a\n"),
        Unchanged("DoNotEndAtTheirOpeningTag", "<ca>\n<ca>\ndev a\n"),
        Unchanged("DoNotOpenInsideAnother", "<ca>\n<cert>\n</ca>\n<cert>\ndev a\n</cert>\n"),
        RewriteCase{"OneAfterTheOther", "<ca>\n</ca>\ndev a\n<cert>\ndev a\n</cert>\ndev a\n",
                    "<ca>\n</ca>\ndev tun-quorvexvpn\n<cert>\ndev a\n</cert>\n"
                    "dev tun-quorvexvpn\n"},
        Unchanged("MayHaveAnyName", "<no such>\ndev a\n</no such>\n"),
        Unchanged("MayHaveABlankForAName", "< >\ndev a\n</ >\n"),
        Unchanged("MayHaveANameOfOneCharacter", "<a>\ndev a\n</A>\n")),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    NoInlineBlocks, AnOpenVpnProfile,
    ::testing::Values(
        RewriteCase{"WithoutAName", "<>\ndev a\n", "<>\ndev tun-quorvexvpn\n"},
        RewriteCase{"AnOpeningBracketAlone", "<\ndev a\n", "<\ndev tun-quorvexvpn\n"},
        RewriteCase{"AClosingTag", "</ca>\ndev a\n", "</ca>\ndev tun-quorvexvpn\n"},
        RewriteCase{"AClosingTagWithoutAName", "</>\ndev a\n", "</>\ndev tun-quorvexvpn\n"},
        RewriteCase{"MoreBehindTheTag", "<ca> x\ndev a\n", "<ca> x\ndev tun-quorvexvpn\n"},
        RewriteCase{"MoreBeforeTheTag", "x <ca>\ndev a\n", "x <ca>\ndev tun-quorvexvpn\n"},
        RewriteCase{"WithoutItsEnd", "<ca\ndev a\n", "<ca\ndev tun-quorvexvpn\n"},
        RewriteCase{"Commented", "#<ca>\ndev a\n", "#<ca>\ndev tun-quorvexvpn\n"}),
    test::CaseName());

}  // namespace
}  // namespace quorvex::linux_service
