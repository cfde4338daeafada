// SPDX-License-Identifier: Apache-2.0
//
// A stand-in for the system's resolver gives exact answers in an exact order and notes what it was
// asked. What the real one does stands in endpoint_resolution_test.cc.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "killswitch/kill_switch.h"
#include "runtime/glib_ptr.h"
#include "tests/unit/runtime/case_name.h"

namespace quorvex::linux_service {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Addresses = std::vector<std::string>;

struct Resolution {
  std::map<std::string, Addresses> answers;
  std::vector<std::string> asked;
};

// GObject classes have no room for a C++ pointer; the tests run one by one.
Resolution* current = nullptr;

GList* Lookup(GResolver* /*resolver*/, const char* host, GCancellable* cancellable,
              GError** error) {
  EXPECT_EQ(cancellable, nullptr);
  current->asked.emplace_back(host);
  const auto answer = current->answers.find(host);
  if (answer == current->answers.end()) {
    g_set_error_literal(error, G_RESOLVER_ERROR, G_RESOLVER_ERROR_NOT_FOUND, "no such host");
    return nullptr;
  }
  GList* list = nullptr;
  for (const std::string& address : answer->second) {
    list = g_list_append(list, g_inet_address_new_from_string(address.c_str()));
  }
  return list;
}

void InitialiseClass(gpointer resolverClass, gpointer /*data*/) {
  static_cast<GResolverClass*>(resolverClass)->lookup_by_name = Lookup;
}

GType StandInType() {
  static const GType kType = g_type_register_static_simple(
      G_TYPE_RESOLVER, "QuorvexStandInResolver", sizeof(GResolverClass), InitialiseClass,
      sizeof(GResolver), nullptr, static_cast<GTypeFlags>(0));
  return kType;
}

class AServerList : public ::testing::Test {
 protected:
  void SetUp() override {
    current = &resolution;
    const GObjectPtr<void> standIn(g_object_new(StandInType(), nullptr));
    g_resolver_set_default(static_cast<GResolver*>(standIn.get()));
  }
  void TearDown() override {
    g_resolver_set_default(original.get());
    current = nullptr;
  }

  // The addresses for an OpenVPN configuration of these remotes.
  static Addresses Collect(const std::vector<std::string>& hosts) {
    std::string text;
    for (const std::string& host : hosts) {
      text += "remote " + host + " 1194\n";
    }
    return CollectEndpointAddresses(EngineKind::kOpenVpn, text);
  }

  Resolution resolution;

 private:
  GObjectPtr<GResolver> original{g_resolver_get_default()};
};

TEST_F(AServerList, KeepsLiteralAddressesOfBothFamiliesInOrder) {
  EXPECT_THAT(Collect({"2001:db8::1", "192.0.2.1", "198.51.100.7", "2001:db8::2"}),
              ElementsAre("2001:db8::1", "192.0.2.1", "198.51.100.7", "2001:db8::2"));
  EXPECT_THAT(resolution.asked, IsEmpty());
}

TEST_F(AServerList, KeepsALiteralAddressAsWritten) {
  EXPECT_THAT(Collect({"2001:DB8:0:0:0:0:0:1", "::ffff:192.0.2.1"}),
              ElementsAre("2001:DB8:0:0:0:0:0:1", "::ffff:192.0.2.1"));
  EXPECT_THAT(resolution.asked, IsEmpty());
}

TEST_F(AServerList, KeepsSpecialAddressesToo) {
  EXPECT_THAT(Collect({"0.0.0.0", "127.0.0.1", "224.0.0.1", "::", "ff02::1"}),
              ElementsAre("0.0.0.0", "127.0.0.1", "224.0.0.1", "::", "ff02::1"));
}

TEST_F(AServerList, HoldsTheSameLiteralOnce) {
  EXPECT_THAT(Collect({"192.0.2.1", "2001:db8::1", "192.0.2.1", "2001:db8::1"}),
              ElementsAre("192.0.2.1", "2001:db8::1"));
}

TEST_F(AServerList, HoldsTwoSpellingsOfOneAddress) {
  EXPECT_THAT(Collect({"2001:db8::1", "2001:DB8::1"}), ElementsAre("2001:db8::1", "2001:DB8::1"));
}

TEST_F(AServerList, KeepsTheOrderOfTheResolver) {
  resolution.answers = {{"old.example", {"192.0.2.9", "2001:db8::9", "192.0.2.1"}},
                        {"new.example", {"2001:db8::7", "192.0.2.7"}}};
  EXPECT_THAT(Collect({"old.example", "new.example"}),
              ElementsAre("192.0.2.9", "2001:db8::9", "192.0.2.1", "2001:db8::7", "192.0.2.7"));
}

TEST_F(AServerList, KeepsTheOrderOfTheHosts) {
  resolution.answers = {{"vpn.example", {"192.0.2.5", "192.0.2.4"}}};
  EXPECT_THAT(Collect({"198.51.100.2", "vpn.example", "198.51.100.1"}),
              ElementsAre("198.51.100.2", "192.0.2.5", "192.0.2.4", "198.51.100.1"));
}

TEST_F(AServerList, HoldsWhatTwoNamesShareOnce) {
  resolution.answers = {{"a.example", {"192.0.2.1", "192.0.2.2"}},
                        {"b.example", {"192.0.2.2", "192.0.2.3", "198.51.100.7"}}};
  EXPECT_THAT(Collect({"198.51.100.7", "a.example", "b.example"}),
              ElementsAre("198.51.100.7", "192.0.2.1", "192.0.2.2", "192.0.2.3"));
}

TEST_F(AServerList, WritesResolvedAddressesInGLibsForm) {
  resolution.answers = {{"vpn.example", {"2001:DB8:0:0::0001"}}};
  EXPECT_THAT(Collect({"vpn.example"}), ElementsAre("2001:db8::1"));
}

TEST_F(AServerList, LeavesOutANameThatDoesNotResolve) {
  resolution.answers = {{"good.example", {"192.0.2.1"}}};
  EXPECT_THAT(Collect({"bad.example", "good.example", "worse.example"}), ElementsAre("192.0.2.1"));
}

TEST_F(AServerList, IsEmptyWhenNoNameResolves) {
  EXPECT_THAT(Collect({"bad.example", "worse.example"}), IsEmpty());
  EXPECT_THAT(resolution.asked, ElementsAre("bad.example", "worse.example"));
}

TEST_F(AServerList, AsksForEachNameOnceInOrder) {
  resolution.answers = {{"b.example", {"192.0.2.1"}}, {"a.example", {"192.0.2.2"}}};
  static_cast<void>(Collect({"b.example", "192.0.2.5", "a.example", "b.example", "2001:db8::1"}));
  EXPECT_THAT(resolution.asked, ElementsAre("b.example", "a.example"));
}

TEST_F(AServerList, AsksForNothingWhenNoHostIsNamed) {
  EXPECT_THAT(CollectEndpointAddresses(EngineKind::kSingBox, "no JSON"), IsEmpty());
  EXPECT_THAT(CollectEndpointAddresses(EngineKind::kXray, R"({"outbounds": []})"), IsEmpty());
  EXPECT_THAT(CollectEndpointAddresses(EngineKind::kWireGuard, ""), IsEmpty());
  EXPECT_THAT(CollectEndpointAddresses(EngineKind::kUnsupported, "remote 192.0.2.1\n"), IsEmpty());
  EXPECT_THAT(resolution.asked, IsEmpty());
}

TEST_F(AServerList, HasNoLimit) {
  std::vector<std::string> literals;
  Addresses& answer = resolution.answers["vpn.example"];
  for (int number = 0; number < 250; ++number) {
    literals.push_back("192.0.2." + std::to_string(number));
    answer.push_back("198.51.100." + std::to_string(number));
  }
  Addresses expected = literals;
  expected.insert(expected.end(), answer.begin(), answer.end());
  literals.emplace_back("vpn.example");
  EXPECT_EQ(Collect(literals), expected);
}

struct NoLiteralCase {
  const char* name;
  std::string host;
};

class AHostThatIsNoLiteralAddress : public AServerList,
                                    public ::testing::WithParamInterface<NoLiteralCase> {};

INSTANTIATE_TEST_SUITE_P(
    Hosts, AHostThatIsNoLiteralAddress,
    ::testing::Values(NoLiteralCase{"Ipv4WithPort", "192.0.2.1:1194"},
                      NoLiteralCase{"Ipv6InBrackets", "[2001:db8::1]"},
                      NoLiteralCase{"Ipv6WithPort", "2001:db8:1:2:3:4:5:6:51820"},
                      NoLiteralCase{"AShortIpv4", "127.1"}, NoLiteralCase{"ANumber", "3221225985"},
                      NoLiteralCase{"ANetwork", "192.0.2.0/24"}, NoLiteralCase{"OnlyDots", "..."},
                      NoLiteralCase{"AQuote", "\"a\""},
                      NoLiteralCase{"LettersOutsideAscii",
                                    "b\xc3\xbc"
                                    "cher.example"},
                      NoLiteralCase{"NoUtf8", "a\xff\xfe.example"},
                      NoLiteralCase{"TheLongest", std::string(255, 'h')}),
    test::CaseName());

TEST_P(AHostThatIsNoLiteralAddress, ContributesNothingUnlessItResolves) {
  EXPECT_THAT(Collect({GetParam().host, "192.0.2.1"}), ElementsAre("192.0.2.1"));
}

struct KindCase {
  const char* name;
  EngineKind kind;
  std::string text;
};

class AnEnginesConfiguration : public AServerList,
                               public ::testing::WithParamInterface<KindCase> {};

INSTANTIATE_TEST_SUITE_P(
    Kinds, AnEnginesConfiguration,
    ::testing::Values(
        KindCase{"SingBox", EngineKind::kSingBox,
                 R"({"outbounds": [{"server": "vpn.example"}, {"server": "192.0.2.1"}]})"},
        KindCase{"Xray", EngineKind::kXray,
                 R"({"outbounds": [{"settings": {"vnext": [{"address": "vpn.example"}],
                                                 "servers": [{"address": "192.0.2.1"}]}}]})"},
        KindCase{"WireGuard", EngineKind::kWireGuard,
                 "[Peer]\nEndpoint = vpn.example:51820\n[Peer]\nEndpoint = 192.0.2.1:51820\n"},
        KindCase{"OpenVpn", EngineKind::kOpenVpn,
                 "remote vpn.example 1194\nremote 192.0.2.1 1194\n"}),
    test::CaseName());

TEST_P(AnEnginesConfiguration, GivesItsServersAddresses) {
  resolution.answers = {{"vpn.example", {"2001:db8::1", "198.51.100.7"}}};
  EXPECT_THAT(CollectEndpointAddresses(GetParam().kind, GetParam().text),
              ElementsAre("2001:db8::1", "198.51.100.7", "192.0.2.1"));
}

}  // namespace
}  // namespace quorvex::linux_service
