// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "killswitch/endpoint_hosts.h"
#include "tests/unit/killswitch/host_case.h"
#include "tests/unit/runtime/case_name.h"

namespace quorvex::linux_service {
namespace {

using test::HostCase;

class AWireGuardConfiguration : public ::testing::TestWithParam<HostCase> {};

constexpr HostCase kEndpointValues[] = {
    {"HostAndPort", "Endpoint = vpn.example:51820\n", {"vpn.example"}},
    {"HostAlone", "Endpoint = vpn.example\n", {"vpn.example"}},
    {"Ipv4AndPort", "Endpoint = 192.0.2.1:51820\n", {"192.0.2.1"}},
    {"Ipv6InBracketsAndPort", "Endpoint=[2001:db8::1]:51820\n", {"2001:db8::1"}},
    {"Ipv6InBrackets", "Endpoint = [2001:db8::1]\n", {"2001:db8::1"}},
    {"Ipv6InBracketsAndBlanks", "Endpoint = [ 2001:db8::1\t]:1\n", {"2001:db8::1"}},
    {"Ipv6WithoutBrackets", "Endpoint = 2001:db8::1\n", {"2001:db8::1"}},
    {"Ipv6WithoutBracketsButWithAPort", "Endpoint = 2001:db8::1:51820\n", {"2001:db8::1:51820"}},
    {"TwoColonsOfAName", "Endpoint = a:b:c\n", {"a:b:c"}},
    {"NoClosingBracket", "Endpoint = [2001:db8::1\n"},
    {"NoClosingBracketButAPort", "Endpoint = [a:1\n"},
    {"TheFirstClosingBracket", "Endpoint = [a]b]:1\n", {"a"}},
    {"ASecondOpeningBracket", "Endpoint = [[a]]:1\n", {"[a"}},
    {"BracketsLaterOn", "Endpoint = a[2001:db8::1]:1\n", {"a[2001:db8::1]:1"}},
    {"EmptyBrackets", "Endpoint = []:51820\n"},
    {"NoValue", "Endpoint =\nEndpoint =  \t\n"},
    {"NoHost", "Endpoint = :51820\n"},
    {"OnlyAColon", "Endpoint = :\n"},
    {"NoPort", "Endpoint = vpn.example:\n", {"vpn.example"}},
    {"ABlankBeforeTheColon", "Endpoint = vpn.example : 51820\n", {"vpn.example"}},
    {"ACommentBehindThePort", "Endpoint = vpn.example:51820 # home\n", {"vpn.example"}},
    {"ACommentBehindTheHost", "Endpoint = vpn.example # home\n", {"vpn.example # home"}},
    {"ASecondEqualsSign", "Endpoint = a=b:1\n", {"a=b"}},
};
INSTANTIATE_TEST_SUITE_P(Values, AWireGuardConfiguration, ::testing::ValuesIn(kEndpointValues),
                         test::CaseName());

constexpr HostCase kEndpointKeys[] = {
    {"InLowerCase", "endpoint=a\n", {"a"}},
    {"InUpperCase", "ENDPOINT=a\n", {"a"}},
    {"InMixedCase", "eNdPoInT=a\n", {"a"}},
    {"BetweenBlanks", " \tEndpoint \t=a\n", {"a"}},
    {"ThatAreLonger", "Endpoints = a\nEndpoint2 = b\nMyEndpoint = c\n"},
    {"ThatAreShorter", "Endpoin = a\n = b\n= c\n"},
    {"WithInnerBlank", "End point = a\n"},
    {"WithOtherWhiteSpace", "Endpoint\v= a\n\fEndpoint = b\n"},
    // The dotless and the dotted I of Turkish are no ASCII letters.
    {"WithOtherLetters", "Endpo\xc4\xb1nt = a\nENDPO\xc4\xb0NT = b\n"},
    {"ThatNameSomethingElse",
     "PublicKey = endpoint=\nAllowedIPs = 0.0.0.0/0\nEndpoint = a:1\n",
     {"a"}},
};
INSTANTIATE_TEST_SUITE_P(Keys, AWireGuardConfiguration, ::testing::ValuesIn(kEndpointKeys),
                         test::CaseName());

constexpr HostCase kWireGuardLines[] = {
    {"OfAWholeProfile",
     "[Interface]\nPrivateKey = k=\nAddress = 10.0.0.2/32\n\n[Peer]\nPublicKey = p=\n"
     "Endpoint = one.example:51820\nAllowedIPs = 0.0.0.0/0\n\n[Peer]\n"
     "Endpoint = [2001:db8::2]:51820\n",
     {"one.example", "2001:db8::2"}},
    {"OfAnySection",
     "Endpoint = a:1\n[Interface]\nEndpoint = b:1\n[Other\nEndpoint = c:1\n",
     {"a", "b", "c"}},
    {"ThatRepeatAHost", "Endpoint = b:1\nEndpoint = a:1\nEndpoint = b:2\n", {"b", "a"}},
    {"WithAnotherLetterCase", "Endpoint = a:1\nEndpoint = A:1\n", {"a", "A"}},
    {"ThatAreComments",
     "#Endpoint = a\n;Endpoint = b\n# Endpoint = c\n \t; Endpoint = d\nEndpoint = e\n",
     {"e"}},
    {"WithoutEqualsSign", "Endpoint\nEndpoint vpn.example:51820\n[Endpoint]\n"},
    {"ThatAreEmpty", "\n \t\r\n\nEndpoint = a\n\n", {"a"}},
    {"OfWindows", "[Peer]\r\nEndpoint = a:1\r\nEndpoint = b\r\n", {"a", "b"}},
    {"OfWhichTheLastIsNotEnded", "Endpoint = a:1\nEndpoint = b:1", {"a", "b"}},
    {"AreNotEndedByCarriageReturns", "Endpoint = a\rEndpoint = b\n", {"a\rEndpoint = b"}},
    {"OfOtherFormats", "remote vpn.example 1194\n{\"outbounds\": []}\n"},
    {"None", ""},
};
INSTANTIATE_TEST_SUITE_P(Lines, AWireGuardConfiguration, ::testing::ValuesIn(kWireGuardLines),
                         test::CaseName());

TEST_P(AWireGuardConfiguration, NamesTheHostsOfItsEndpoints) {
  EXPECT_EQ(CollectEndpointHosts(EngineKind::kWireGuard, std::string(GetParam().text)),
            GetParam().Hosts());
}

class AnOpenVpnConfiguration : public ::testing::TestWithParam<HostCase> {};

constexpr HostCase kRemoteWords[] = {
    {"WithPortAndProtocol", "remote vpn.example 1194 udp\n", {"vpn.example"}},
    {"WithPort", "remote vpn.example 1194\n", {"vpn.example"}},
    {"Alone", "remote vpn.example\n", {"vpn.example"}},
    {"InUpperCase", "REMOTE vpn.example 1194 udp\n", {"vpn.example"}},
    {"InMixedCase", "rEmOtE VPN.example\n", {"VPN.example"}},
    {"Ipv6", "remote 2001:db8::1 1194 udp6\n", {"2001:db8::1"}},
    {"Ipv6InBrackets", "remote [2001:db8::1] 1194\n", {"[2001:db8::1]"}},
    {"WithColon", "remote vpn.example:1194\n", {"vpn.example:1194"}},
    {"BehindTabsAndBlanks", "\t remote \t vpn.example\t1194\n", {"vpn.example"}},
    {"BehindOtherWhiteSpace", "remote\vvpn.example\f1194\n", {"vpn.example"}},
    {"InQuotes", "remote \"vpn.example\" 1194\n", {"\"vpn.example\""}},
    {"WithoutHost", "remote\nremote \t\n"},
    {"WithAHashForAHost", "remote # 1194\n", {"#"}},
    {"ThatAreLonger", "remotes a\nremote-random\nremote-cert-tls server\nxremote b\n"},
    {"ThatAreShorter", "remot a\nr b\n"},
    {"InSecondPlace", "setenv remote a\n"},
};
INSTANTIATE_TEST_SUITE_P(Words, AnOpenVpnConfiguration, ::testing::ValuesIn(kRemoteWords),
                         test::CaseName());

constexpr HostCase kOpenVpnLines[] = {
    {"OfAWholeProfile",
     "client\ndev tun\nproto udp\nremote one.example 1194 udp\n"
     "remote two.example 443 tcp\nremote-random\n<ca>\n-----BEGIN\n</ca>\n",
     {"one.example", "two.example"}},
    {"OfInlineBlocks",
     "<connection>\nremote a 1194\n</connection>\n<ca>\nremote b\n</ca>\n",
     {"a", "b"}},
    {"ThatRepeatAHost", "remote b 1\nremote a 1\nremote b 2\n", {"b", "a"}},
    {"WithAnotherLetterCase", "remote a\nremote A\n", {"a", "A"}},
    {"ThatAreComments", "#remote a\n;remote b\n# remote c\n \t; remote d\nremote e\n", {"e"}},
    {"ThatAreEmpty", "\n \t\r\n\nremote a\n\n", {"a"}},
    {"OfWindows", "client\r\nremote a\r\nremote b 1194\r\n", {"a", "b"}},
    {"OfWhichTheLastIsNotEnded", "remote a\nremote b", {"a", "b"}},
    {"AreNotEndedByCarriageReturns", "remote a\rremote b\n", {"a"}},
    {"OfOtherFormats", "Endpoint = a:1\n{\"outbounds\": []}\n"},
    {"None", ""},
};
INSTANTIATE_TEST_SUITE_P(Lines, AnOpenVpnConfiguration, ::testing::ValuesIn(kOpenVpnLines),
                         test::CaseName());

TEST_P(AnOpenVpnConfiguration, NamesTheHostsOfItsRemotes) {
  EXPECT_EQ(CollectEndpointHosts(EngineKind::kOpenVpn, std::string(GetParam().text)),
            GetParam().Hosts());
}

}  // namespace
}  // namespace quorvex::linux_service
