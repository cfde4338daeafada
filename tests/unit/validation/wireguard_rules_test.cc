// SPDX-License-Identifier: Apache-2.0
//
// Sections, lines and what a whole profile needs; the keys have a file of their own.
#include <array>

#include "tests/unit/validation/profile_case.h"
#include "tests/unit/validation/wireguard_text.h"
#include "validation/engine_rules.h"

namespace quorvex::linux_service {
namespace {

using test::kInterface;
using test::kPeer;
using test::WithInterface;
using test::WithPeer;

constexpr char kPeerBeforeInterface[] = "WireGuard peers must follow the Interface section.";
constexpr char kInterfaceMisplaced[] = "WireGuard profiles require one Interface before all peers.";
constexpr char kInvalidLine[] = "The WireGuard configuration contains an invalid line.";
constexpr char kEmptyValue[] = "WireGuard directive values may not be empty.";
constexpr char kHook[] = "WireGuard hook and SaveConfig directives are not permitted.";
constexpr char kInterfaceDirective[] = "The WireGuard Interface contains an unsupported directive.";
constexpr char kPeerDirective[] = "The WireGuard Peer contains an unsupported directive.";
constexpr char kIncompletePeer[] =
    "Every WireGuard peer requires PublicKey, Endpoint, and AllowedIPs.";
constexpr char kIncompleteProfile[] =
    "WireGuard profiles require Interface PrivateKey, Address, DNS, a complete Peer, and a default "
    "AllowedIPs route.";

TEST(AWireGuardProfile, MayBeSpeltInManyWays) {
  test::ExpectVerdicts(
      ValidateWireGuard,
      {{"Plain", kInterface + kPeer},
       {"WithoutLastLineFeed", kInterface + "[Peer]\nPublicKey=k\nEndpoint=e\nAllowedIPs=::/0"},
       {"WithCarriageReturns",
        "[Interface]\r\nPrivateKey = k\r\nAddress = a\r\nDNS = 1.1.1.1\r\n\r\n"
        "[Peer]\r\nPublicKey = k\r\nEndpoint = e\r\nAllowedIPs = ::/0\r\n"},
       {"WithoutBlanks",
        "[Interface]\nPrivateKey=k\nAddress=a\nDNS=1.1.1.1\n"
        "[Peer]\nPublicKey=k\nEndpoint=e\nAllowedIPs=::/0\n"},
       {"WithEveryWhiteSpace",
        " \t\v\f\r[Interface]\v\n\tPrivateKey\t=\tk\n\fAddress \v= a\f\n DNS = 1.1.1.1 "
        "\n\n \t \n\v[Peer]\f\nPublicKey = k\n\tEndpoint = e\nAllowedIPs = ::/0 \n"},
       {"InCapitals",
        "[INTERFACE]\nPRIVATEKEY = k\nADDRESS = a\nDNS = 1.1.1.1\n"
        "[PEER]\nPUBLICKEY = k\nENDPOINT = e\nALLOWEDIPS = ::/0\n"},
       {"InSmallLetters",
        "[interface]\nprivatekey = k\naddress = a\ndns = 1.1.1.1\n"
        "[peer]\npublickey = k\nendpoint = e\nallowedips = ::/0\n"},
       {"InMixedCase",
        "[iNTERFACE]\nPrivatekey = k\naDDRESS = a\nDns = 1.1.1.1\n"
        "[pEER]\npublicKey = k\nendPoint = e\nallowedIps = ::/0\n"},
       {"WithCommentLines", "# first\n; second\n" + kInterface +
                                "  # PostUp = rm\n;[Interface]\n#\n;\n" + kPeer + "#[Peer]\n; Foo"},
       {"WithEqualSignsInValues", WithPeer("PublicKey = a=b==\nPresharedKey = =\nEndpoint == x")}});
}

TEST(AWireGuardProfile, HasOneInterfaceAndThenItsPeers) {
  test::ExpectVerdicts(
      ValidateWireGuard,
      {{"PeerFirst", kPeer + kInterface, kPeerBeforeInterface},
       {"PeerOnly", kPeer, kPeerBeforeInterface},
       {"PeerHeaderOnly", "[Peer]", kPeerBeforeInterface},
       {"TwoInterfaces", kInterface + kInterface + kPeer, kInterfaceMisplaced},
       {"TwoInterfaceHeaders", "[Interface]\n[Interface]", kInterfaceMisplaced},
       {"InterfaceBehindAPeer", kInterface + kPeer + "[Interface]", kInterfaceMisplaced},
       // An open peer is closed by the next one or the end, not by an Interface.
       {"InterfaceBehindAnIncompletePeer", kInterface + "[Peer]\n[Interface]", kInterfaceMisplaced},
       {"InterfaceOnly", kInterface, kIncompleteProfile},
       {"TwoPeers", kInterface + kPeer + kPeer},
       {"EmptyLastPeer", kInterface + kPeer + "[Peer]", kIncompletePeer},
       {"EmptyFirstPeer", kInterface + "[Peer]\n" + kPeer, kIncompletePeer},
       {"CommentsOnly", "# nothing\n\n;", kIncompleteProfile},
       {"BlanksOnly", " \n\t\r\n", kIncompleteProfile}});
}

TEST(AWireGuardProfile, HasOnlyHeadersAndDirectives) {
  test::ExpectVerdicts(
      ValidateWireGuard,
      {{"UnknownHeader", WithInterface("[Foo]"), kInvalidLine},
       {"UnknownHeaderInPeer", WithPeer("[Foo]"), kInvalidLine},
       {"UnknownHeaderFirst", "[Foo]\n" + kInterface + kPeer, kInvalidLine},
       {"KeyBeforeAnyHeader", "PrivateKey = k\n" + kInterface + kPeer, kInvalidLine},
       {"HookBeforeAnyHeader", "PostUp = rm\n" + kInterface + kPeer, kInvalidLine},
       {"EmptyValueBeforeAnyHeader", "DNS =\n" + kInterface + kPeer, kInvalidLine},
       {"NoEqualSign", WithInterface("MTU 1420"), kInvalidLine},
       {"NoEqualSignInPeer", WithPeer("Endpoint: e"), kInvalidLine},
       {"HookWithoutEqualSign", WithInterface("PostUp"), kInvalidLine},
       {"BlanksInsideHeader", "[ Interface ]\nPrivateKey = k", kInvalidLine},
       {"BlanksInsidePeerHeader", WithPeer("[ Peer ]"), kInvalidLine},
       {"CommentBehindHeader", "[Interface] ; note\n", kInvalidLine},
       {"OtherCommentBehindHeader", "[Interface] # x\n", kInvalidLine},
       {"CommentWithEqualSignBehindHeader", "[Interface] # x = y\n", kInvalidLine},
       // With an equal sign it is a directive with a strange key.
       {"EqualSignBehindPeerHeader", WithInterface("[Peer] # x = y"), kInterfaceDirective},
       {"EqualSignBehindInterfaceHeader", WithPeer("[Interface] = x"), kPeerDirective},
       {"OtherWhiteSpace", "\xc2\xa0[Interface]\n", kInvalidLine},
       {"LoneCarriageReturn", "[Interface]\rPrivateKey = k\n", kInvalidLine}});
}

TEST(AWireGuardProfile, HasNoEmptyValue) {
  test::ExpectVerdicts(ValidateWireGuard,
                       {{"Empty", WithInterface("MTU ="), kEmptyValue},
                        {"BlanksOnly", WithInterface("MTU = \t\v\f\r"), kEmptyValue},
                        {"EmptyInPeer", WithPeer("PresharedKey ="), kEmptyValue},
                        {"EmptyDns", WithInterface("DNS ="), kEmptyValue},
                        {"EmptyAllowedIps", WithPeer("AllowedIPs = "), kEmptyValue},
                        {"EmptyOfAnUnknownKey", WithInterface("Foo ="), kEmptyValue},
                        {"EmptyOfAnUnknownPeerKey", WithPeer("Foo ="), kEmptyValue},
                        {"EmptyOfAHook", WithInterface("PostUp ="), kEmptyValue},
                        {"EmptyOfNoKey", WithInterface("="), kEmptyValue},
                        {"OfNoKey", WithInterface("= x"), kInterfaceDirective},
                        {"OfNoPeerKey", WithPeer(" = x"), kPeerDirective},
                        {"AnEqualSignOfNoKey", WithInterface("=="), kInterfaceDirective}});
}

TEST(AWireGuardProfile, IsRefusedByTheFirstRuleThatFails) {
  test::ExpectVerdicts(
      ValidateWireGuard,
      {{"TheFirstLineWins", "[Interface]\nFoo = x\nPostUp = x\nMTU =\nx", kInterfaceDirective},
       {"ALineBeforeTheNext", "[Interface]\nPostUp = x\n[Interface]\n", kHook},
       {"ALineBeforeThePeerCheck", WithPeer("[Peer]\nFoo = x"), kPeerDirective},
       {"ThePeerCheckBeforeTheNextPeer", kInterface + "[Peer]\nEndpoint = e\n" + "[Peer]\nFoo = x",
        kIncompletePeer},
       {"ThePeerCheckBeforeTheWholeProfile", "[Interface]\nMTU = 1\n[Peer]\nEndpoint=e",
        kIncompletePeer}});
}

// A text without its line `without`.
std::string Dropping(const std::string& without, std::string text) {
  const std::size_t begin = text.find(without);
  EXPECT_NE(begin, std::string::npos);
  return text.erase(begin, text.find('\n', begin) + 1 - begin);
}

TEST(AWireGuardProfile, NeedsPrivateKeyAddressAndDns) {
  for (const char* line : {"PrivateKey", "Address", "DNS"}) {
    SCOPED_TRACE(line);
    EXPECT_EQ(test::SentenceOf(ValidateWireGuard(Dropping(line, kInterface + kPeer))),
              kIncompleteProfile);
  }
}

TEST(AWireGuardProfile, NeedsPublicKeyEndpointAndAllowedIpsInEveryPeer) {
  for (const char* line : {"PublicKey", "Endpoint", "AllowedIPs"}) {
    SCOPED_TRACE(line);
    const std::string peer = Dropping(line, kPeer);
    for (const std::string& peers : {peer, peer + kPeer, kPeer + peer, kPeer + peer + kPeer}) {
      EXPECT_EQ(test::SentenceOf(ValidateWireGuard(kInterface + peers)), kIncompletePeer);
    }
  }
}

TEST(AWireGuardProfile, RunsNoHookAndSavesNothing) {
  for (const std::string key :
       {"PreUp", "PostUp", "PreDown", "PostDown", "SaveConfig", "POSTUP", "postup", "PREUP",
        "predown", "POSTDOWN", "saveconfig", "SAVECONFIG", "pOsTuP"}) {
    SCOPED_TRACE(key);
    for (const char* rest : {" = iptables -A", "=x", " = true", " = false", "\t=\t#"}) {
      EXPECT_EQ(test::SentenceOf(ValidateWireGuard(WithInterface(key + rest))), kHook);
      EXPECT_EQ(test::SentenceOf(ValidateWireGuard(WithPeer(key + rest))), kHook);
    }
  }
}

TEST(AnAmneziaProfile, IsHeldToTheSameRules) {
  EXPECT_EQ(test::Refusal("amneziawg", kInterface + kPeer), "");
  EXPECT_EQ(test::Refusal("amneziawg", WithInterface("Jc = 4")), "");
  EXPECT_EQ(test::Refusal("wireguard", WithInterface("Jc = 4")), "");
  EXPECT_EQ(test::Refusal("amneziawg", WithPeer("Jc = 4")), kPeerDirective);
  EXPECT_EQ(test::Refusal("amneziawg", WithInterface("PostUp = x")), kHook);
  EXPECT_EQ(test::Refusal("amneziawg", kInterface), kIncompleteProfile);
}

}  // namespace
}  // namespace quorvex::linux_service
