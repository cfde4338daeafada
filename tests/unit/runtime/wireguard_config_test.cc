// SPDX-License-Identifier: Apache-2.0
#include "runtime/wireguard_config.h"

#include <gtest/gtest.h>

#include "tests/unit/runtime/case_name.h"

namespace quorvex::linux_service {
namespace {

struct RewriteCase {
  const char* name;
  std::string config;
  std::string text;
  std::vector<std::string> servers;
};

class ARewrite : public ::testing::TestWithParam<RewriteCase> {};

TEST_P(ARewrite, TakesTheInterfacesDnsOutAndKeepsEveryOtherLine) {
  const WireGuardRewrite rewrite = RewriteWireGuardConfig(GetParam().config);
  EXPECT_EQ(rewrite.text, GetParam().text);
  EXPECT_EQ(rewrite.dnsServers, GetParam().servers);
}

INSTANTIATE_TEST_SUITE_P(
    WholeProfiles, ARewrite,
    ::testing::Values(
        RewriteCase{"Ordinary",
                    "[Interface]\nPrivateKey = k\nDNS = 10.0.0.1\nAddress = 10.8.0.2/32\n\n"
                    "[Peer]\nPublicKey = p\nEndpoint = 192.0.2.1:51820\n",
                    "[Interface]\nPrivateKey = k\nAddress = 10.8.0.2/32\n\n"
                    "[Peer]\nPublicKey = p\nEndpoint = 192.0.2.1:51820\n",
                    {"10.0.0.1"}},
        RewriteCase{"WithoutDns",
                    "[Interface]\nPrivateKey = k\n[Peer]\nPublicKey = p\n",
                    "[Interface]\nPrivateKey = k\n[Peer]\nPublicKey = p\n",
                    {}},
        RewriteCase{"Empty", "", "", {}}, RewriteCase{"OneNewline", "\n", "\n", {}},
        RewriteCase{"TwoNewlines", "\n\n", "\n\n", {}},
        RewriteCase{"NoNewlineAtTheEnd",
                    "[Interface]\nPrivateKey = k",
                    "[Interface]\nPrivateKey = k\n",
                    {}},
        RewriteCase{
            "EndsWithItsDnsLine", "[Interface]\nDNS = 10.0.0.1", "[Interface]\n", {"10.0.0.1"}},
        RewriteCase{"OddLinesStay",
                    "junk\n[Interface]\n \t \n# DNS 1\nDNS\n=\nFwMark=0\n",
                    "junk\n[Interface]\n \t \n# DNS 1\nDNS\n=\nFwMark=0\n",
                    {}}),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    DnsLines, ARewrite,
    ::testing::Values(
        RewriteCase{"LowerCaseTwoServersWithBlanks",
                    "[Interface]\ndns = 10.0.0.1 , 10.0.0.2\n",
                    "[Interface]\n",
                    {"10.0.0.1", "10.0.0.2"}},
        RewriteCase{"BlanksAroundTheKey",
                    "[Interface]\n \t DnS \t =1.1.1.1\n",
                    "[Interface]\n",
                    {"1.1.1.1"}},
        RewriteCase{"NoBlanks",
                    "[Interface]\nDNS=1.1.1.1,2.2.2.2\n",
                    "[Interface]\n",
                    {"1.1.1.1", "2.2.2.2"}},
        RewriteCase{"SeveralLinesAddUp",
                    "[Interface]\nDNS = 1.1.1.1, 2.2.2.2\nMTU = 1400\nDNS = ::1\n",
                    "[Interface]\nMTU = 1400\n",
                    {"1.1.1.1", "2.2.2.2", "::1"}},
        RewriteCase{"TrailingCommaGivesAnEmptyEntry",
                    "[Interface]\nDNS = 1.1.1.1,\n",
                    "[Interface]\n",
                    {"1.1.1.1", ""}},
        RewriteCase{"EmptyPiecesAreKept",
                    "[Interface]\nDNS = ,1.1.1.1, ,,2.2.2.2\n",
                    "[Interface]\n",
                    {"", "1.1.1.1", "", "", "2.2.2.2"}},
        RewriteCase{
            "OnlyACommaGivesTwoEmptyEntries", "[Interface]\nDNS = ,\n", "[Interface]\n", {"", ""}},
        RewriteCase{"EverythingAfterTheFirstEqualsSign",
                    "[Interface]\nDNS = a=b, c=\n",
                    "[Interface]\n",
                    {"a=b", "c="}},
        RewriteCase{
            "InnerBlanksStay", "[Interface]\nDNS = a b\t,\tc\n", "[Interface]\n", {"a b", "c"}},
        RewriteCase{"DuplicatesStay",
                    "[Interface]\nDNS = 1.1.1.1, 1.1.1.1\n",
                    "[Interface]\n",
                    {"1.1.1.1", "1.1.1.1"}},
        RewriteCase{"CarriageReturnsAreTrimmed",
                    "[Interface]\r\nPrivateKey = k\r\nDNS = 1.1.1.1\r\nMTU = 1\r\n",
                    "[Interface]\r\nPrivateKey = k\r\nMTU = 1\r\n",
                    {"1.1.1.1"}}),
    test::CaseName());

// Lines that only look like the interface's DNS.
INSTANTIATE_TEST_SUITE_P(
    OtherKeys, ARewrite,
    ::testing::Values(
        RewriteCase{"Commented",
                    "[Interface]\n# DNS = 1.1.1.1\n#DNS=1\n;DNS=1\n",
                    "[Interface]\n# DNS = 1.1.1.1\n#DNS=1\n;DNS=1\n",
                    {}},
        RewriteCase{"Longer",
                    "[Interface]\nDNSServers = 1.1.1.1\n",
                    "[Interface]\nDNSServers = 1.1.1.1\n",
                    {}},
        RewriteCase{"Shorter", "[Interface]\nDN = 1.1.1.1\n", "[Interface]\nDN = 1.1.1.1\n", {}},
        RewriteCase{
            "SplitByABlank", "[Interface]\nD NS = 1.1.1.1\n", "[Interface]\nD NS = 1.1.1.1\n", {}},
        RewriteCase{
            "InTheValue", "[Interface]\nTable = dns = 1\n", "[Interface]\nTable = dns = 1\n", {}}),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Sections, ARewrite,
    ::testing::Values(
        RewriteCase{"DnsInAPeerStays",
                    "[Interface]\nMTU = 1\n[Peer]\nDNS = 1.1.1.1\n",
                    "[Interface]\nMTU = 1\n[Peer]\nDNS = 1.1.1.1\n",
                    {}},
        RewriteCase{"DnsBeforeAnySectionStays",
                    "DNS = 1.1.1.1\n[Interface]\nDNS = 2.2.2.2\n",
                    "DNS = 1.1.1.1\n[Interface]\n",
                    {"2.2.2.2"}},
        RewriteCase{"HeaderInOtherLettersAndBlanks",
                    " \t[iNTERFACE]\t \nDNS = 1.1.1.1\n",
                    " \t[iNTERFACE]\t \n",
                    {"1.1.1.1"}},
        RewriteCase{"BlanksInsideTheBracketsMakeAnotherSection",
                    "[Interface]\n[ Interface ]\nDNS = 1.1.1.1\n",
                    "[Interface]\n[ Interface ]\nDNS = 1.1.1.1\n",
                    {}},
        RewriteCase{"SecondInterfaceCountsAgain",
                    "[Interface]\nDNS = 1.1.1.1\n[Peer]\nDNS = 9.9.9.9\n[Interface]\nDNS = ::2\n",
                    "[Interface]\n[Peer]\nDNS = 9.9.9.9\n[Interface]\n",
                    {"1.1.1.1", "::2"}},
        RewriteCase{"UnknownSectionLeavesTheInterface",
                    "[Interface]\n[Any]\nDNS = 1.1.1.1\n",
                    "[Interface]\n[Any]\nDNS = 1.1.1.1\n",
                    {}},
        RewriteCase{"EmptyBracketsLeaveTheInterface",
                    "[Interface]\n[]\nDNS = 1.1.1.1\n",
                    "[Interface]\n[]\nDNS = 1.1.1.1\n",
                    {}},
        RewriteCase{"BracketsAroundAnAssignmentLeaveIt",
                    "[Interface]\n[dns = 1]\nDNS = 1.1.1.1\n",
                    "[Interface]\n[dns = 1]\nDNS = 1.1.1.1\n",
                    {}},
        RewriteCase{"OpenBracketIsNoHeader",
                    "[Interface]\n[Peer\nDNS = 1.1.1.1\n",
                    "[Interface]\n[Peer\n",
                    {"1.1.1.1"}},
        RewriteCase{"TextAfterTheBracketIsNoHeader",
                    "[Interface]\n[Peer] # x\nDNS = 1.1.1.1\n",
                    "[Interface]\n[Peer] # x\n",
                    {"1.1.1.1"}},
        RewriteCase{"TextAfterItsBracketIsNoInterface",
                    "[Interface] # x\nDNS = 1.1.1.1\n",
                    "[Interface] # x\nDNS = 1.1.1.1\n",
                    {}}),
    test::CaseName());

}  // namespace
}  // namespace quorvex::linux_service
