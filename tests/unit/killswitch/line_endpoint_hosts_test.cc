// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "killswitch/endpoint_hosts.h"
#include "tests/unit/killswitch/host_case.h"
#include "tests/unit/runtime/case_name.h"

namespace quorvex::linux_service {
namespace {

using test::HostCase;
using test::kLongestHost;
using test::kTooLongHost;

class AWireGuardConfiguration : public ::testing::TestWithParam<HostCase> {};

INSTANTIATE_TEST_SUITE_P(
    Values, AWireGuardConfiguration,
    ::testing::Values(
        HostCase{"HostAndPort", "Endpoint = vpn.example:51820\n", {"vpn.example"}},
        HostCase{"HostAlone", "Endpoint = vpn.example\n", {"vpn.example"}},
        HostCase{"Ipv4AndPort", "Endpoint = 192.0.2.1:51820\n", {"192.0.2.1"}},
        HostCase{"Ipv6InBracketsAndPort", "Endpoint=[2001:db8::1]:51820\n", {"2001:db8::1"}},
        HostCase{"Ipv6InBrackets", "Endpoint = [2001:db8::1]\n", {"2001:db8::1"}},
        HostCase{"Ipv6InBracketsAndBlanks", "Endpoint = [ 2001:db8::1\t]:1\n", {"2001:db8::1"}},
        HostCase{"Ipv6WithoutBrackets", "Endpoint = 2001:db8::1\n", {"2001:db8::1"}},
        HostCase{"Ipv6WithoutBracketsButWithAPort",
                 "Endpoint = 2001:db8::1:51820\n",
                 {"2001:db8::1:51820"}},
        HostCase{"TwoColonsOfAName", "Endpoint = a:b:c\n", {"a:b:c"}},
        HostCase{"NoClosingBracket", "Endpoint = [2001:db8::1\n", {}},
        HostCase{"NoClosingBracketButAPort", "Endpoint = [a:1\n", {}},
        HostCase{"TheFirstClosingBracket", "Endpoint = [a]b]:1\n", {"a"}},
        HostCase{"ASecondOpeningBracket", "Endpoint = [[a]]:1\n", {"[a"}},
        HostCase{"BracketsLaterOn", "Endpoint = a[2001:db8::1]:1\n", {"a[2001:db8::1]:1"}},
        HostCase{"EmptyBrackets", "Endpoint = []:51820\n", {}},
        HostCase{"NoValue", "Endpoint =\nEndpoint =  \t\n", {}},
        HostCase{"NoHost", "Endpoint = :51820\n", {}}, HostCase{"OnlyAColon", "Endpoint = :\n", {}},
        HostCase{"NoPort", "Endpoint = vpn.example:\n", {"vpn.example"}},
        HostCase{"ABlankBeforeTheColon", "Endpoint = vpn.example : 51820\n", {"vpn.example"}},
        HostCase{"ACommentBehindThePort", "Endpoint = vpn.example:51820 # home\n", {"vpn.example"}},
        HostCase{
            "ACommentBehindTheHost", "Endpoint = vpn.example # home\n", {"vpn.example # home"}},
        HostCase{"ASecondEqualsSign", "Endpoint = a=b:1\n", {"a=b"}},
        HostCase{"TheLongest", "Endpoint = " + kLongestHost + ":51820\n", {kLongestHost}},
        HostCase{
            "OneByteTooLong", "Endpoint = " + kTooLongHost + ":51820\nEndpoint = a:1\n", {"a"}}),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Keys, AWireGuardConfiguration,
    ::testing::Values(
        HostCase{"InLowerCase", "endpoint=a\n", {"a"}},
        HostCase{"InUpperCase", "ENDPOINT=a\n", {"a"}},
        HostCase{"InMixedCase", "eNdPoInT=a\n", {"a"}},
        HostCase{"BetweenBlanks", " \tEndpoint \t=a\n", {"a"}},
        HostCase{"ThatAreLonger", "Endpoints = a\nEndpoint2 = b\nMyEndpoint = c\n", {}},
        HostCase{"ThatAreShorter", "Endpoin = a\n = b\n= c\n", {}},
        HostCase{"WithInnerBlank", "End point = a\n", {}},
        HostCase{"WithOtherWhiteSpace", "Endpoint\v= a\n\fEndpoint = b\n", {}},
        // The dotless and the dotted I of Turkish are no ASCII letters.
        HostCase{"WithOtherLetters", "Endpo\xc4\xb1nt = a\nENDPO\xc4\xb0NT = b\n", {}},
        HostCase{"ThatNameSomethingElse",
                 "PublicKey = endpoint=\nAllowedIPs = 0.0.0.0/0\nEndpoint = a:1\n",
                 {"a"}}),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Lines, AWireGuardConfiguration,
    ::testing::Values(
        HostCase{"OfAWholeProfile",
                 "[Interface]\nPrivateKey = k=\nAddress = 10.0.0.2/32\n\n[Peer]\nPublicKey = p=\n"
                 "Endpoint = one.example:51820\nAllowedIPs = 0.0.0.0/0\n\n[Peer]\n"
                 "Endpoint = [2001:db8::2]:51820\n",
                 {"one.example", "2001:db8::2"}},
        HostCase{"OfAnySection",
                 "Endpoint = a:1\n[Interface]\nEndpoint = b:1\n[Other\nEndpoint = c:1\n",
                 {"a", "b", "c"}},
        HostCase{"ThatRepeatAHost", "Endpoint = b:1\nEndpoint = a:1\nEndpoint = b:2\n", {"b", "a"}},
        HostCase{"WithAnotherLetterCase", "Endpoint = a:1\nEndpoint = A:1\n", {"a", "A"}},
        HostCase{"ThatAreComments",
                 "#Endpoint = a\n;Endpoint = b\n# Endpoint = c\n \t; Endpoint = d\nEndpoint = e\n",
                 {"e"}},
        HostCase{"WithoutEqualsSign", "Endpoint\nEndpoint vpn.example:51820\n[Endpoint]\n", {}},
        HostCase{"ThatAreEmpty", "\n \t\r\n\nEndpoint = a\n\n", {"a"}},
        HostCase{"OfWindows", "[Peer]\r\nEndpoint = a:1\r\nEndpoint = b\r\n", {"a", "b"}},
        HostCase{"OfWhichTheLastIsNotEnded", "Endpoint = a:1\nEndpoint = b:1", {"a", "b"}},
        HostCase{
            "AreNotEndedByCarriageReturns", "Endpoint = a\rEndpoint = b\n", {"a\rEndpoint = b"}},
        HostCase{"OfOtherFormats", "remote vpn.example 1194\n{\"outbounds\": []}\n", {}},
        HostCase{"None", "", {}}),
    test::CaseName());

TEST_P(AWireGuardConfiguration, NamesTheHostsOfItsEndpoints) {
  EXPECT_EQ(CollectEndpointHosts(EngineKind::kWireGuard, GetParam().text), GetParam().hosts);
}

class AnOpenVpnConfiguration : public ::testing::TestWithParam<HostCase> {};

INSTANTIATE_TEST_SUITE_P(
    Words, AnOpenVpnConfiguration,
    ::testing::Values(
        HostCase{"WithPortAndProtocol", "remote vpn.example 1194 udp\n", {"vpn.example"}},
        HostCase{"WithPort", "remote vpn.example 1194\n", {"vpn.example"}},
        HostCase{"Alone", "remote vpn.example\n", {"vpn.example"}},
        HostCase{"InUpperCase", "REMOTE vpn.example 1194 udp\n", {"vpn.example"}},
        HostCase{"InMixedCase", "rEmOtE VPN.example\n", {"VPN.example"}},
        HostCase{"Ipv6", "remote 2001:db8::1 1194 udp6\n", {"2001:db8::1"}},
        HostCase{"Ipv6InBrackets", "remote [2001:db8::1] 1194\n", {"[2001:db8::1]"}},
        HostCase{"WithColon", "remote vpn.example:1194\n", {"vpn.example:1194"}},
        HostCase{"BehindTabsAndBlanks", "\t remote \t vpn.example\t1194\n", {"vpn.example"}},
        HostCase{"BehindOtherWhiteSpace", "remote\vvpn.example\f1194\n", {"vpn.example"}},
        HostCase{"InQuotes", "remote \"vpn.example\" 1194\n", {"\"vpn.example\""}},
        HostCase{"WithoutHost", "remote\nremote \t\n", {}},
        HostCase{"WithAHashForAHost", "remote # 1194\n", {"#"}},
        HostCase{
            "ThatAreLonger", "remotes a\nremote-random\nremote-cert-tls server\nxremote b\n", {}},
        HostCase{"ThatAreShorter", "remot a\nr b\n", {}},
        HostCase{"InSecondPlace", "setenv remote a\n", {}},
        HostCase{"TheLongest", "remote " + kLongestHost + " 1194\n", {kLongestHost}},
        HostCase{"OneByteTooLong", "remote " + kTooLongHost + " 1194\nremote a\n", {"a"}}),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Lines, AnOpenVpnConfiguration,
    ::testing::Values(
        HostCase{"OfAWholeProfile",
                 "client\ndev tun\nproto udp\nremote one.example 1194 udp\n"
                 "remote two.example 443 tcp\nremote-random\n<ca>\n-----BEGIN\n</ca>\n",
                 {"one.example", "two.example"}},
        HostCase{"OfInlineBlocks",
                 "<connection>\nremote a 1194\n</connection>\n<ca>\nremote b\n</ca>\n",
                 {"a", "b"}},
        HostCase{"ThatRepeatAHost", "remote b 1\nremote a 1\nremote b 2\n", {"b", "a"}},
        HostCase{"WithAnotherLetterCase", "remote a\nremote A\n", {"a", "A"}},
        HostCase{"ThatAreComments",
                 "#remote a\n;remote b\n# remote c\n \t; remote d\nremote e\n",
                 {"e"}},
        HostCase{"ThatAreEmpty", "\n \t\r\n\nremote a\n\n", {"a"}},
        HostCase{"OfWindows", "client\r\nremote a\r\nremote b 1194\r\n", {"a", "b"}},
        HostCase{"OfWhichTheLastIsNotEnded", "remote a\nremote b", {"a", "b"}},
        HostCase{"AreNotEndedByCarriageReturns", "remote a\rremote b\n", {"a"}},
        HostCase{"OfOtherFormats", "Endpoint = a:1\n{\"outbounds\": []}\n", {}},
        HostCase{"None", "", {}}),
    test::CaseName());

TEST_P(AnOpenVpnConfiguration, NamesTheHostsOfItsRemotes) {
  EXPECT_EQ(CollectEndpointHosts(EngineKind::kOpenVpn, GetParam().text), GetParam().hosts);
}

}  // namespace
}  // namespace quorvex::linux_service
