// SPDX-License-Identifier: Apache-2.0
//
// What OpenVPN makes of a profile that the rules have passed.
#include "tests/unit/validation/openvpn_text.h"
#include "tests/unit/validation/profile_case.h"
#include "validation/engine_rules.h"
#include "validation/openvpn_sentences.h"

namespace quorvex::linux_service {
namespace {

using test::AfterBasis;
using test::BeforeBasis;
using test::InBlock;
using test::ProfileCase;
using test::Times;

std::string Refusal(const std::string& text) {
  return test::Refusal("openvpn", text);
}

void ExpectRefusals(const std::vector<ProfileCase>& profiles) {
  for (const ProfileCase& profile : profiles) {
    EXPECT_EQ(Refusal(profile.text), profile.sentence) << profile.name;
  }
}

// Each of these passes the rules: without the second reading OpenVPN, as root, would obey it.
const std::vector<ProfileCase> kHidden = {
    {"InDoubleQuotes", AfterBasis("\"log\" /root/x"), kOpenVpnForbidden},
    {"InSingleQuotes", AfterBasis("'plugin' /tmp/x.so"), kOpenVpnForbidden},
    {"WithDashesInQuotes", AfterBasis("\"--config\" /root/x"), kOpenVpnForbidden},
    {"WithQuotesAndNoBlank", AfterBasis("\"writepid\"/root/x"), kOpenVpnForbidden},
    {"BehindABackslash", AfterBasis("\\ up /tmp/x"), kOpenVpnForbidden},
    {"BehindAByteOrderMark", "\xEF\xBB\xBFlog /root/x\n" + AfterBasis(""), kOpenVpnForbidden},
    {"BehindAnEndWithMoreOnItsLine", InBlock("</ca> x\nlog /root/x\n<ca>"), kOpenVpnUnmatchedBlock},
    {"BehindAnEndInALongLine", InBlock(std::string(255, 'x') + "</ca>\nlog /root/x\n<ca>"),
     kOpenVpnUnmatchedBlock},
    {"BehindAnEndBehindBlanks", InBlock(" \t</ca>\\\nlog /root/x\n<ca>"), kOpenVpnUnmatchedBlock},
    {"FileForABlock", AfterBasis("\"ca\" /etc/shadow"), kOpenVpnNotEmbedded},
    {"FileForCredentials", AfterBasis("'auth-user-pass' /etc/shadow"), kOpenVpnNotEmbedded},
    {"FileForTheProxy", AfterBasis("\"http-proxy\" 10.0.0.1 8080 /etc/shadow"),
     kOpenVpnProxyCredentials},
    {"FileForTheSocksProxy", AfterBasis("socks-proxy 10.0.0.1 1080 /etc/shadow"),
     kOpenVpnNotEmbedded},
    {"AnotherDevice", AfterBasis("\"dev\" tun7"), kOpenVpnIncomplete},
    {"AnotherDeviceBehindAByteOrderMark", "\xEF\xBB\xBF" + ("dev tun7\n" + AfterBasis("")),
     kOpenVpnIncomplete},
    {"AnotherDeviceType", AfterBasis("\"dev-type\" tap"), kOpenVpnIncomplete},
    {"DashesBeforeATag", AfterBasis("--<connection>\nremote h 1 tcp-server\n--</connection>"),
     kOpenVpnUnsupportedBlock},
    {"QuotesAroundATag", AfterBasis("\"<connection>\"\nremote h\n\"</connection>\""),
     kOpenVpnUnsupportedBlock},
    {"AServer", AfterBasis("proto tcp-server"), kOpenVpnIncomplete},
    {"AnAddressToListenOn", AfterBasis("local 0.0.0.0"), kOpenVpnForbidden},
    {"APortToListenOn", AfterBasis("lport 53"), kOpenVpnForbidden},
};

TEST(OpenVpnsReading, RefusesWhatTheRulesDoNotSee) {
  ExpectRefusals(kHidden);
}

// Otherwise the cases above would show nothing.
TEST(OpenVpnsReading, IsNeededBesideTheRules) {
  for (const ProfileCase& profile : kHidden) {
    EXPECT_EQ(test::SentenceOf(ValidateOpenVpn(profile.text)), "") << profile.name;
  }
}

TEST(OpenVpnsReading, LetsTheRulesSpeakFirst) {
  ExpectRefusals({{"Directive", AfterBasis("\"log\" x\nup x"), kOpenVpnForbidden},
                  {"Block", AfterBasis("\"log\" x\n</ca>"), kOpenVpnUnmatchedBlock},
                  {"Basis", "client\n\"log\" x\n", kOpenVpnIncomplete}});
}

TEST(OpenVpnsReading, LeavesOrdinarySpellingsAlone) {
  for (const char* lines :
       {"verify-x509-name \"C=CH, CN=vpn 1\" subject", "verify-x509-name 'vpn 1' name",
        "remote \"vpn.example\" 443", "auth-retry nointeract # as the provider says",
        "cipher AES-256-GCM;x", "verb 3\r", "\tnobind ; x", "--proto udp", "# \"log", "; 'up' \\x",
        "http-proxy-option AGENT \"Mozilla/5.0 (X11)\"", "http-proxy-option EXT1 X-A \"b c\""}) {
    EXPECT_EQ(Refusal(AfterBasis(lines)), "") << lines;
    EXPECT_EQ(Refusal(BeforeBasis(lines)), "") << lines;
  }
  EXPECT_EQ(Refusal("\xEF\xBB\xBF# saved on Windows\r\n" + AfterBasis("nobind\r")), "");
}

TEST(OpenVpnsReading, RefusesLinesThatOpenVpnRefuses) {
  ExpectRefusals(
      {{"OpenQuote", AfterBasis("verify-x509-name \"vpn"), kOpenVpnForbidden},
       {"StrayBackslash", AfterBasis("verify-x509-name C:\\x"), kOpenVpnForbidden},
       {"TooLong", AfterBasis("verb 3 #" + std::string(247, 'x')), kOpenVpnForbidden},
       {"LongestComment", AfterBasis("#" + std::string(253, 'x'))},
       {"TooLongAComment", AfterBasis("#" + std::string(254, 'x')), kOpenVpnForbidden},
       {"UnknownOption", AfterBasis("frobnicate"), kOpenVpnForbidden},
       {"EmptyName", AfterBasis("\"\""), kOpenVpnForbidden},
       {"Dashes", AfterBasis("--"), kOpenVpnForbidden},
       {"FourDashes", AfterBasis("----verb 3"), kOpenVpnForbidden},
       {"OneDash", AfterBasis("-verb 3"), kOpenVpnForbidden},
       {"PartOfATag", AfterBasis("<ca"), kOpenVpnForbidden},
       {"TagWithMoreBehind", AfterBasis("<ca> x"), kOpenVpnForbidden},
       {"TagWithACommentBehind", AfterBasis("<ca> # x\nx\n</ca>#x"), kOpenVpnUnsupportedBlock},
       {"TooFewWords", AfterBasis("keepalive 10"), kOpenVpnForbidden},
       {"TooManyWords", AfterBasis("keepalive 10 60 1"), kOpenVpnForbidden},
       {"CarriageReturnBetweenTwo", AfterBasis("nobind\rup /tmp/x"), kOpenVpnForbidden}});
}

TEST(OpenVpnsReading, SeesTheServicesOwnDevice) {
  for (const char* device :
       {"dev tun", "dev tun5", "DEV tun", "--dev tun", "--Dev TUN", " \tdev\ttun \r",
        "dev tun \"open quote", "dev tun 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17"}) {
    EXPECT_EQ(Refusal("client\nremote e\n" + std::string(device)), "") << device;
  }
  // The line is replaced whole, so its length is nothing to OpenVPN.
  EXPECT_EQ(Refusal("client\nremote e\ndev tun #" + std::string(1000, 'x')), "");
}

TEST(OpenVpnsReading, LeavesOnlyThatDevice) {
  for (const char* device :
       {"\"dev\" tun", "'dev' tun-quorvexvpn", "\"--dev\" tun", "\\ dev tun"}) {
    EXPECT_EQ(Refusal(AfterBasis(device)), kOpenVpnIncomplete) << device;
    EXPECT_EQ(Refusal(BeforeBasis(device)), kOpenVpnIncomplete) << device;
  }
}

TEST(OpenVpnsReading, KnowsOnlyTunDevices) {
  for (const char* type : {"dev-type tun", "dev-type TUN", "dev-type \"tun\""}) {
    EXPECT_EQ(Refusal(AfterBasis(type)), "") << type;
  }
  for (const char* type : {"dev-type null", "dev-type \"tap\"", "'dev-type' tap", "dev-type"}) {
    EXPECT_EQ(Refusal(AfterBasis(type)), kOpenVpnIncomplete) << type;
  }
}

// The rules did not see such an option, nor does the kill switch's reader.
TEST(OpenVpnsReading, RefusesAnOptionThatTheRulesSawUnderAnotherName) {
  ExpectRefusals({{"ClientInQuotes", "\"client\"\nclient\nremote e\ndev tun", kOpenVpnForbidden},
                  {"ClientBehindAByteOrderMark",
                   "\xEF\xBB\xBF"
                   "client\nclient\nremote e\ndev tun",
                   kOpenVpnForbidden},
                  {"RemoteInQuotesBesideAPlainOne", "client\nremote e\n\"remote\" f\ndev tun",
                   kOpenVpnForbidden},
                  {"ADashedRemoteInQuotes", AfterBasis("\"--remote\" f"), kOpenVpnForbidden},
                  {"AnEscapedName", AfterBasis("\\verb 3"), kOpenVpnForbidden},
                  {"AHarmlessNameInQuotes", AfterBasis("'verb' 3"), kOpenVpnForbidden}});
}

TEST(OpenVpnsReading, NeedsClientModeAndARemoteOfItsOwn) {
  ExpectRefusals({{"RemoteOfAComment", "client\nremote # e\ndev tun", kOpenVpnForbidden},
                  {"RemoteOfAnEmptyWord", "client\nremote \"\"\ndev tun"},
                  {"ClientWithAnArgument", "client x\nremote e\ndev tun", kOpenVpnForbidden}});
}

TEST(OpenVpnsReading, ConnectsAndNeverListens) {
  for (const char* protocol :
       {"udp", "udp4", "udp6", "tcp", "tcp4", "tcp6", "tcp-client", "tcp4-client", "tcp6-client"}) {
    EXPECT_EQ(Refusal(AfterBasis(std::string("proto ") + protocol)), "") << protocol;
    EXPECT_EQ(Refusal(AfterBasis(std::string("remote h 1194 ") + protocol)), "") << protocol;
  }
  for (const char* protocol : {"tcp-server", "tcp4-server", "tcp6-server", "proto-uninitialized",
                               "UDP", "", "\"\"", "#"}) {
    const std::string line = std::string("proto ") + protocol;
    EXPECT_NE(Refusal(AfterBasis(line)), "") << protocol;
    EXPECT_NE(Refusal(AfterBasis("proto-force " + std::string(protocol))), "") << protocol;
  }
  for (const char* line :
       {"proto tcp-server", "proto-force tcp-server", "remote h 1 tcp6-server"}) {
    EXPECT_EQ(Refusal(AfterBasis(line)), kOpenVpnIncomplete) << line;
  }
}

TEST(OpenVpnsReading, BindsToNoPlaceOfTheProfilesChoice) {
  for (const char* line : {"nobind", "port 1194", "rport 443", "lport 0"}) {
    EXPECT_EQ(Refusal(AfterBasis(line)), "") << line;
  }
  for (const char* line :
       {"lport 1194", "lport 53", "lport", "lport \"\"", "lport 00", "bind", "bind ipv6only",
        "local 10.0.0.1", "bind-dev vrf0", "multihome", "mode server", "tls-server",
        "server 10.0.0.0 255.0.0.0", "port-share 127.0.0.1 80"}) {
    EXPECT_EQ(Refusal(AfterBasis(line)), kOpenVpnForbidden) << line;
  }
}

TEST(OpenVpnsReading, TakesNoFileForAProxy) {
  for (const char* line : {"http-proxy h 8080", "http-proxy h 8080 auto",
                           "http-proxy h 8080 auto-nct", "http-proxy h 8080 AUTO",
                           "http-proxy h 8080 auto ntlm", "socks-proxy h", "socks-proxy h 1"}) {
    EXPECT_EQ(Refusal(AfterBasis(line)), "") << line;
  }
  for (const char* line :
       {"'http-proxy' h 8080 stdin", "\"http-proxy\" h 8080 \"\"", "\"http-proxy\" h 1 x auto"}) {
    EXPECT_EQ(Refusal(AfterBasis(line)), kOpenVpnProxyCredentials) << line;
  }
  for (const char* line :
       {"socks-proxy h 1 stdin", "socks-proxy h 1 /x", "\"socks-proxy\" h 1 x"}) {
    EXPECT_EQ(Refusal(AfterBasis(line)), kOpenVpnNotEmbedded) << line;
  }
  EXPECT_EQ(Refusal(AfterBasis("http-proxy h")), kOpenVpnForbidden);
  EXPECT_EQ(Refusal(AfterBasis("http-proxy-override h 1 /x")), kOpenVpnForbidden);
}

const std::vector<std::string> kMaterial = {
    "ca",           "cert",           "key",        "dh",          "tls-auth", "tls-crypt",
    "tls-crypt-v2", "auth-user-pass", "crl-verify", "extra-certs", "secret",   "pkcs12"};

TEST(OpenVpnsReading, TakesMaterialFromBlocksOnly) {
  for (const std::string& name : kMaterial) {
    SCOPED_TRACE(name);
    const std::string block = "<" + name + ">\nx\n</" + name + ">\n";
    EXPECT_EQ(Refusal(AfterBasis(block)), "");
    EXPECT_EQ(Refusal(AfterBasis(name + "\n" + block)), "");
    EXPECT_EQ(Refusal(AfterBasis(block + name + " [inline]")), "");
    EXPECT_EQ(Refusal(AfterBasis(block + "\"" + name + "\" x")), kOpenVpnNotEmbedded);
    EXPECT_EQ(Refusal(AfterBasis(block + "'" + name + "' [inline] 1")), kOpenVpnNotEmbedded);
    EXPECT_EQ(Refusal(AfterBasis(block + "\\ " + name + " [inline")), kOpenVpnNotEmbedded);
  }
}

TEST(OpenVpnsReading, AgreesWithTheRulesWhereBlocksBegin) {
  ExpectRefusals(
      {{"BetweenBlanks", AfterBasis(" \t<ca> \r\nx\n</ca>")},
       {"InCapitals", AfterBasis("<CA>\nx\n</CA>")},
       {"WithDashes", AfterBasis("--<ca>\nverb 3\n"), kOpenVpnUnsupportedBlock},
       {"InQuotes", AfterBasis("\"<ca>\"\nverb 3\n"), kOpenVpnUnsupportedBlock},
       {"InSingleQuotes", AfterBasis("'<ca>'\nverb 3\n"), kOpenVpnUnsupportedBlock},
       {"BehindABackslash", AfterBasis("\\ <ca>\nverb 3\n"), kOpenVpnUnsupportedBlock},
       {"BehindAByteOrderMark", "\xEF\xBB\xBF<ca>\n" + AfterBasis(""), kOpenVpnUnsupportedBlock},
       {"BeforeABackslash", AfterBasis("<ca>\\\nverb 3"), kOpenVpnForbidden},
       {"WithoutName", AfterBasis("--<>\nverb 3\n"), kOpenVpnUnsupportedBlock},
       {"ClosingOne", AfterBasis("--</ca>\nverb 3\n"), kOpenVpnUnsupportedBlock},
       {"OfAnIgnoredName", AfterBasis("ignore-unknown-option no-iv\n--<no-iv>\nverb 3\n"),
        kOpenVpnUnsupportedBlock},
       {"OfAnOrdinaryOption", AfterBasis("'<verb>'\n3\n"), kOpenVpnUnsupportedBlock}});
}

TEST(OpenVpnsReading, AgreesWithTheRulesWhereBlocksEnd) {
  const std::string base64(64, 'A');
  ExpectRefusals(
      {{"WithoutLastLineFeed", "client\nremote e\ndev tun\n<ca>\nx\n</ca>"},
       {"BetweenBlanks", InBlock("x\n \t</ca> \t\r\n<key>\nx\n</key>\n<ca>")},
       {"LongLinesOfData", InBlock(Times(100, base64))},
       {"DataOfAWholePiece", InBlock(std::string(255, 'A') + "\n" + std::string(510, 'A'))},
       {"OtherTagsAsData", InBlock("</key>\n<ca>\n</ca\n</ ca>\nx</ca>\n#</ca>\n\"</ca>\"")},
       {"EndWithMoreBehind", InBlock("</ca>x"), kOpenVpnUnmatchedBlock},
       {"TwoEnds", InBlock("</ca></ca>"), kOpenVpnUnmatchedBlock},
       {"EndWithACommentBehind", InBlock("</ca> # x"), kOpenVpnUnmatchedBlock},
       {"EndInALongLine", InBlock(std::string(510, 'A') + "</ca>"), kOpenVpnUnmatchedBlock},
       {"EndBehindBlanksInALongLine", InBlock(std::string(255, 'A') + "   </ca>   x"),
        kOpenVpnUnmatchedBlock},
       {"EndBehindManyBlanks", AfterBasis("<ca>\nx\n" + std::string(300, ' ') + "</ca>")},
       {"EndCutInTwo", InBlock("x\n" + std::string(252, ' ') + "</ca>\n<ca>"),
        kOpenVpnUnterminatedBlock}});
}

// OpenVPN reads on to the next end in the right letters. Without one it does nothing at all.
TEST(OpenVpnsReading, LetsAnEndInOtherLettersPassOnlyIfNoneFollows) {
  ExpectRefusals(
      {{"None", AfterBasis("<ca>\nx\n</CA>")},
       {"NoneForTwo", AfterBasis("<ca>\nx\n</CA>\n<key>\nx\n</KEY>")},
       {"TheNextBlocks", AfterBasis("<ca>\nx\n</CA>\n<ca>\nx\n</ca>"), kOpenVpnUnterminatedBlock},
       {"OneInAComment", AfterBasis("<ca>\nx\n</CA>\n# </ca>")},
       {"OneInALongLine",
        AfterBasis("<ca>\nx\n</CA>\n<key>\n" + std::string(255, 'A') + "</ca>\n</key>"),
        kOpenVpnUnterminatedBlock}});
}

TEST(OpenVpnsReading, PassesOverIgnoredOptionsOfOtherSystems) {
  ExpectRefusals(
      {{"Ignored", AfterBasis("ignore-unknown-option block-outside-dns\nblock-outside-dns")},
       {"Several", AfterBasis("ignore-unknown-option ncp-disable --register-dns\n"
                              "register-dns\nncp-disable x y")},
       {"InTwoLines", AfterBasis("ignore-unknown-option no-iv\nignore-unknown-option keysize\n"
                                 "keysize 256\nno-iv")},
       {"KnownToOpenVpn", AfterBasis("ignore-unknown-option tls-crypt-v2 data-ciphers\n"
                                     "data-ciphers AES-256-GCM")},
       {"NotIgnored", AfterBasis("block-outside-dns"), kOpenVpnForbidden},
       {"AnotherIgnored", AfterBasis("ignore-unknown-option register-dns\nblock-outside-dns"),
        kOpenVpnForbidden},
       {"IgnoredTooLate", AfterBasis("block-outside-dns\nignore-unknown-option block-outside-dns"),
        kOpenVpnForbidden},
       {"InOtherLetters", AfterBasis("ignore-unknown-option no-iv\nNO-IV"), kOpenVpnForbidden},
       {"Nothing", AfterBasis("ignore-unknown-option"), kOpenVpnForbidden}});
}

TEST(OpenVpnsReading, LetsNothingElseBeIgnored) {
  for (const char* name : {"up", "dns-updown", "frobnicate", "CLIENT", "log", "connection", "\"\"",
                           "<ca>", "----no-iv"}) {
    const std::string line = std::string("ignore-unknown-option ") + name;
    EXPECT_EQ(Refusal(AfterBasis(line)), kOpenVpnForbidden) << name;
  }
  // The argument count of an option that counts is not for a profile to get wrong either.
  EXPECT_EQ(Refusal(AfterBasis("ignore-unknown-option remote\nremote")), kOpenVpnForbidden);
}

// As the rules take them; OpenVPN refuses such a profile by itself.
TEST(OpenVpnsReading, TakesNamesInEveryLetterCase) {
  EXPECT_EQ(Refusal("CLIENT\nRemote e\nDEV tun\nVERB 3\n<CA>\nx\n</CA>\n"), "");
  EXPECT_EQ(Refusal(AfterBasis("LPORT 53")), kOpenVpnForbidden);
  EXPECT_EQ(Refusal(AfterBasis("'LOG' x")), kOpenVpnForbidden);
  EXPECT_EQ(Refusal(AfterBasis("Socks-Proxy h 1 x")), kOpenVpnNotEmbedded);
}

// An unreadable line costs no more than another, nor do many blocks without an end of their own.
TEST(OpenVpnsReading, TakesLinearTime) {
  constexpr std::size_t kLargest = 2097152;
  const auto filled = [](const std::string& line) {
    return AfterBasis(Times((kLargest - 100) / line.size(), line));
  };
  EXPECT_EQ(Refusal(filled("verb 3\n")), "");
  EXPECT_EQ(Refusal(filled("#\n")), "");
  EXPECT_EQ(Refusal(filled("<ca>\n</CA>\n")), "");
  EXPECT_EQ(Refusal(filled("ignore-unknown-option no-iv keysize\nno-iv\n")), "");
  EXPECT_EQ(Refusal(InBlock(std::string(kLargest - 100, ' '))), "");
}

}  // namespace
}  // namespace quorvex::linux_service
