// SPDX-License-Identifier: Apache-2.0
#include <vector>

#include "runtime/glib_ptr.h"
#include "tests/unit/validation/profile_case.h"
#include "validation/engine_rules.h"

namespace quorvex::linux_service {
namespace {

constexpr char kUnmatchedBlock[] = "The OpenVPN profile contains an unmatched inline block.";
constexpr char kUnsupportedBlock[] = "The OpenVPN profile contains an unsupported inline block.";
constexpr char kForbidden[] =
    "The OpenVPN profile contains a privileged or external-control directive that is not "
    "permitted.";
constexpr char kProxyCredentials[] =
    "OpenVPN HTTP proxy credentials may not reference an external file.";
constexpr char kUnterminatedBlock[] = "The OpenVPN profile contains an unterminated inline block.";
constexpr char kIncomplete[] =
    "OpenVPN profiles require client mode, a remote, and TUN\xe2\x80\x94not TAP.";
constexpr char kNotEmbedded[] =
    "OpenVPN profiles must embed credentials and certificates instead of referencing external "
    "files.";

const std::string kClient = "client\n";
const std::string kRemote = "remote vpn.example 1194\n";
const std::string kDevice = "dev tun\n";
const std::string kBasis = kClient + kRemote + kDevice;
const std::string kCaBlock = "<ca>\ncertificate\n</ca>\n";

std::string RefusalOf(const std::string& text) {
  return test::SentenceOf(ValidateOpenVpn(text));
}

TEST(AnOpenVpnProfile, MayBeSpeltInManyWays) {
  test::ExpectVerdicts(
      ValidateOpenVpn,
      {{"Plain", kBasis},
       {"WithoutLastLineFeed", "client\ndev tun\nremote e"},
       {"WithCarriageReturns", "client\r\n\r\ndev tun\r\nremote e\r\n<ca>\r\nx\r\n</ca>\r\n"},
       {"WithEveryWhiteSpace", " \tclient \v\n\fdev\ttun\v\n\rremote\f \te\r\n \t\n"},
       {"InCapitals", "CLIENT\nDEV TUN\nREMOTE E\n<CA>\nx\n</CA>\n"},
       {"AsOnTheCommandLine", "--client\n--dev tun\n--remote e\n--CA [inline]\n" + kCaBlock},
       {"WithCommentLines", "# up x\n;up x\n" + kBasis + "  # <foo>\n\t; </ca>\n#"},
       {"WithCommentsBehind", "client # x\nremote e # x\ndev tun # x\n"},
       {"WithOtherDirectives",
        kBasis + "proto udp\nnobind\nverb 3\ncipher AES-256-GCM\nremote-cert-tls server\n"
                 "redirect-gateway def1\nkey-direction 1\nroute 10.0.0.0 255.0.0.0\n"},
       {"WithNamesLikeForbiddenOnes",
        kBasis + "status-version 2\nup-delay\nup-restart\ndowns x\nlogs x\nroute x\n"
                 "-up x\nusers x\ncdr x\n_up x\ntls-verify2 x\n"},
       {"WithSeveralRemotes", kBasis + kRemote + "remote\n"}});
}

TEST(AnOpenVpnProfile, NeedsClientModeAndARemote) {
  test::ExpectVerdicts(
      ValidateOpenVpn,
      {{"WithoutClient", kRemote + kDevice, kIncomplete},
       {"WithTlsClientAndPull", "tls-client\npull\n" + kRemote + kDevice, kIncomplete},
       {"WithoutRemote", kClient + kDevice, kIncomplete},
       {"WithARemoteWithoutArguments", kClient + kDevice + "remote \t\n", kIncomplete},
       {"WithOneRemoteOfTwo", kClient + kDevice + "remote\nremote e\nremote\n"},
       {"WithRemoteRandomOnly", kClient + kDevice + "remote-random e\n", kIncomplete},
       {"WithoutDevice", kClient + kRemote, kIncomplete},
       {"WithNothing", "\n# nothing\n", kIncomplete},
       {"InABlock", "<ca>\n" + kBasis + "</ca>\n", kIncomplete}});
}

TEST(AnOpenVpnProfile, HasExactlyOneTunDevice) {
  test::ExpectVerdicts(ValidateOpenVpn,
                       {{"Tun0", kClient + kRemote + "dev tun0"},
                        {"TunInCapitals", kClient + kRemote + "DEV TUN7"},
                        {"BeginningWithTun", kClient + kRemote + "dev tunnel"},
                        {"OfTunType", kClient + kRemote + "dev vpn\ndev-type tun"},
                        {"OfTunTypeInCapitals", kClient + kRemote + "dev-type TUN\ndev vpn"},
                        {"WithoutNameOfTunType", kClient + kRemote + "dev\ndev-type tun"},
                        {"TunOfTunType", kBasis + "dev-type tun\ndev-type tun"},
                        {"Tap", kClient + kRemote + "dev tap", kIncomplete},
                        {"TapInCapitals", kClient + kRemote + "dev TAP0", kIncomplete},
                        {"BeginningWithTap", kClient + kRemote + "dev taptun", kIncomplete},
                        {"TunOfTapType", kBasis + "dev-type tap", kIncomplete},
                        {"TunOfTapTypeFirst", "dev-type tap\ndev-type tun\n" + kBasis, kIncomplete},
                        {"TapOfTunType", kClient + kRemote + "dev tap\ndev-type tun", kIncomplete},
                        {"OfAnotherName", kClient + kRemote + "dev vpn", kIncomplete},
                        {"EndingWithTun", kClient + kRemote + "dev mytun", kIncomplete},
                        {"Null", kClient + kRemote + "dev null", kIncomplete},
                        {"WithoutName", kClient + kRemote + "dev", kIncomplete},
                        {"TypeOnly", kClient + kRemote + "dev-type tun", kIncomplete},
                        {"Twice", kBasis + kDevice, kIncomplete},
                        {"TwiceOnceWithoutName", kBasis + "dev\n", kIncomplete},
                        {"TwiceInTwoSpellings", kBasis + "--DEV tun\n", kIncomplete},
                        {"OfATypeTwice", kBasis + "dev-type tun\ndev-type vpn\n"}});
}

TEST(AnOpenVpnProfile, HasOnlyClosedBlocksOfKnownNames) {
  test::ExpectVerdicts(
      ValidateOpenVpn,
      {{"Plain", kBasis + kCaBlock},
       {"Empty", kBasis + "<ca>\n</ca>\n"},
       {"Twice", kBasis + kCaBlock + kCaBlock},
       {"BetweenBlanks", kBasis + " \t<ca> \r\nx\n\f</Ca>\v\n"},
       {"WithDirectivesAsContent",
        kBasis + "<ca>\nup /etc/x.sh\ndev tap\nca /etc/x\nhttp-proxy h p /x\n</ca>"},
       {"WithTagsAsContent", kBasis + "<ca>\n<foo>\n</key>\n</>\n<ca>\n</ca>\n"},
       {"WithCommentsAsContent", kBasis + "<ca>\n# x\n\n;</ca>\n</ca>"},
       {"WithAlmostAnEnd", kBasis + "<ca>\n</ca> x\n</ ca>\n</ca >\n</ca>"},
       {"Closed", kBasis + "</ca>\n", kUnmatchedBlock},
       {"ClosedTwice", kBasis + kCaBlock + "</ca>\n", kUnmatchedBlock},
       {"ClosedWithAnUnknownName", "</foo>\n" + kBasis, kUnmatchedBlock},
       {"ClosedWithoutName", "</>\n" + kBasis, kUnmatchedBlock},
       {"Connection", kBasis + "<connection>\n</connection>\n", kUnsupportedBlock},
       {"ProxyPassword", kBasis + "<http-proxy-user-pass>\nx\n</http-proxy-user-pass>",
        kUnsupportedBlock},
       {"WithoutName", kBasis + "<>\n", kUnsupportedBlock},
       {"WithBlanksInItsTag", kBasis + "< ca >\n", kUnsupportedBlock},
       {"OnOneLine", kBasis + "<ca>x</ca>\n", kUnsupportedBlock},
       {"ForbiddenName", kBasis + "<up>\n</up>\n", kUnsupportedBlock},
       {"Open", kBasis + "<ca>\ncertificate\n", kUnterminatedBlock},
       {"OpenAtOnce", kBasis + "<ca>", kUnterminatedBlock},
       {"ClosedUnderAnotherName", kBasis + "<ca>\n</cert>\n", kUnterminatedBlock},
       {"ClosedInAComment", kBasis + "<ca>\n#</ca>\n", kUnterminatedBlock},
       // No tags, but directives that no rule knows.
       {"TagsWithMoreBehind", kBasis + "<ca> x\n</ca> x\n<ca\nca>\n<\n>\n"},
       {"TagWithACommentOpensNothing", kBasis + "<ca> # x\nup /etc/x.sh\n</ca> # x\n",
        kForbidden}});
}

TEST(AnOpenVpnProfile, NamesNoFileForItsProxy) {
  test::ExpectVerdicts(
      ValidateOpenVpn,
      {{"WithHostAndPort", kBasis + "http-proxy 10.0.0.1 8080"},
       {"WithHost", kBasis + "http-proxy 10.0.0.1"},
       {"WithNothing", kBasis + "http-proxy"},
       {"Auto", kBasis + "http-proxy 10.0.0.1 8080 auto"},
       {"AutoNct", kBasis + "http-proxy 10.0.0.1 8080 auto-nct"},
       {"InCapitals", kBasis + "HTTP-PROXY 10.0.0.1\t8080  AUTO-NCT"},
       {"WithAMethod", kBasis + "http-proxy 10.0.0.1 8080 auto ntlm"},
       {"WithOptions", kBasis + "http-proxy-option VERSION 1.1 /x"},
       {"WithAFile", kBasis + "http-proxy 10.0.0.1 8080 /root/creds", kProxyCredentials},
       {"WithAFileAndAMethod", kBasis + "http-proxy 10.0.0.1 8080 /root/creds auto",
        kProxyCredentials},
       {"WithStdin", kBasis + "http-proxy 10.0.0.1 8080 stdin", kProxyCredentials},
       {"WithALongerWord", kBasis + "http-proxy 10.0.0.1 8080 auto-nct2", kProxyCredentials},
       {"WithAFileOnTheCommandLine", kBasis + "--Http-Proxy\th\tp\t/x", kProxyCredentials}});
}

TEST(AnOpenVpnProfile, IsRefusedByTheFirstRuleThatFails) {
  test::ExpectVerdicts(
      ValidateOpenVpn,
      {{"TheFirstLineWins", "up x\n</ca>\n<foo>\nhttp-proxy h p x", kForbidden},
       {"ABlockBeforeADirective", "<foo>\nup x", kUnsupportedBlock},
       {"ADirectiveBeforeTheEnd", "ca /x\nup x\n<ca>", kForbidden},
       {"AnOpenBlockBeforeTheBasis", "<ca>\n", kUnterminatedBlock},
       {"AnOpenBlockBeforeTheFiles", kBasis + "key /x\n<ca>\n", kUnterminatedBlock},
       {"TheBasisBeforeTheFiles", kClient + kDevice + "ca /etc/ssl/ca.pem\n", kIncomplete}});
}

std::string Upper(const std::string& text) {
  return std::string(GCharPtr(g_ascii_strup(text.c_str(), -1)).get());
}

TEST(AForbiddenDirective, IsRefusedInEverySpelling) {
  const std::vector<std::string> forbidden = {"up",
                                              "down",
                                              "route-up",
                                              "route-pre-down",
                                              "ipchange",
                                              "learn-address",
                                              "tls-verify",
                                              "auth-user-pass-verify",
                                              "client-connect",
                                              "client-disconnect",
                                              "plugin",
                                              "script-security",
                                              "management",
                                              "management-client",
                                              "management-external-key",
                                              "management-external-cert",
                                              "pkcs11-providers",
                                              "pkcs11-id",
                                              "config",
                                              "capath",
                                              "setenv",
                                              "setenv-safe",
                                              "route-nopull",
                                              "route-noexec",
                                              "ifconfig-noexec",
                                              "pull-filter",
                                              "dev-node",
                                              "iproute",
                                              "engine",
                                              "providers",
                                              "providers-path",
                                              "http-proxy-user-pass",
                                              "tls-export-cert",
                                              "tls-crypt-v2-verify",
                                              "auth-gen-token-secret",
                                              "client-config-dir",
                                              "ifconfig-pool-persist",
                                              "replay-persist",
                                              "tmp-dir",
                                              "setcon",
                                              "mktun",
                                              "rmtun",
                                              "askpass",
                                              "log",
                                              "log-append",
                                              "status",
                                              "writepid",
                                              "daemon",
                                              "syslog",
                                              "chroot",
                                              "cd",
                                              "user",
                                              "group"};
  ASSERT_EQ(forbidden.size(), 53U);
  for (const std::string& name : forbidden) {
    for (const std::string& spelling : {name, "--" + name, Upper(name), "--" + Upper(name)}) {
      SCOPED_TRACE(spelling);
      EXPECT_EQ(RefusalOf(kBasis + spelling), kForbidden);
      EXPECT_EQ(RefusalOf(kBasis + spelling + " /etc/x.sh"), kForbidden);
      EXPECT_EQ(RefusalOf(" \t" + spelling + "\t[inline]\r\n" + kBasis), kForbidden);
      EXPECT_EQ(RefusalOf(kBasis + "# " + spelling + "\n"), "");
      EXPECT_EQ(RefusalOf(kBasis + spelling + "x y\n"), "");
    }
  }
}

const std::vector<std::string> kFileNames = {
    "ca",           "cert",           "key",        "dh",          "tls-auth", "tls-crypt",
    "tls-crypt-v2", "auth-user-pass", "crl-verify", "extra-certs", "secret",   "pkcs12"};

std::string Block(const std::string& name) {
  return "<" + name + ">\ntext\n</" + name + ">\n";
}

TEST(AFileDirective, IsAcceptedOnlyWithItsBlock) {
  ASSERT_EQ(kFileNames.size(), 12U);
  for (const std::string& name : kFileNames) {
    for (const std::string& spelling : {name, "--" + name, Upper(name)}) {
      SCOPED_TRACE(spelling);
      for (const std::string& line :
           {spelling, spelling + " [inline]", "\t" + spelling + "\t \r"}) {
        EXPECT_EQ(RefusalOf(kBasis + line + "\n"), kNotEmbedded);
        EXPECT_EQ(RefusalOf(kBasis + line + "\n" + Block(name)), "");
        EXPECT_EQ(RefusalOf(Block(Upper(name)) + kBasis + line), "");
      }
    }
  }
}

TEST(AFileDirective, NamesNoFileEvenWithItsBlock) {
  for (const std::string& name : kFileNames) {
    SCOPED_TRACE(name);
    for (const char* argument : {"/etc/ssl/ca.pem", "x", "[INLINE]", "[inline] 1", "# none",
                                 "\"[inline]\"", "inline", "[ inline ]"}) {
      const std::string line = name + " " + argument + "\n";
      EXPECT_EQ(RefusalOf(kBasis + line), kNotEmbedded) << argument;
      EXPECT_EQ(RefusalOf(kBasis + line + Block(name)), kNotEmbedded) << argument;
      EXPECT_EQ(RefusalOf(kBasis + Block(name) + name + "\n" + line), kNotEmbedded) << argument;
    }
  }
}

TEST(AFileDirective, IsNotServedByAnotherBlock) {
  for (const std::string& name : kFileNames) {
    SCOPED_TRACE(name);
    const std::string other = name == "ca" ? "cert" : "ca";
    EXPECT_EQ(RefusalOf(kBasis + name + "\n" + Block(other)), kNotEmbedded);
    EXPECT_EQ(RefusalOf(kBasis + Block(other) + Block(name) + name + "\n" + other + "\n"), "");
  }
}

TEST(AnInlineBlock, NeedsNoDirective) {
  std::string all = kBasis;
  for (const std::string& name : kFileNames) {
    SCOPED_TRACE(name);
    EXPECT_EQ(RefusalOf(kBasis + Block(name)), "");
    EXPECT_EQ(RefusalOf(kBasis + Block(Upper(name))), "");
    EXPECT_EQ(RefusalOf(kBasis + Block(name + "x")), kUnsupportedBlock);
    all += Block(name);
  }
  EXPECT_EQ(RefusalOf(all), "");
}

}  // namespace
}  // namespace quorvex::linux_service
