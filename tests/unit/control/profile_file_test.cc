// SPDX-License-Identifier: Apache-2.0
#include "control/profile_file.h"

#include <gtest/gtest.h>

#include "control/json_spans.h"
#include "control/messages.h"
#include "control/option_names.h"
#include "runtime/glib_ptr.h"
#include "tests/unit/runtime/case_name.h"

namespace quorvex::control {
namespace {

struct NameCase {
  const char* name;
  const char* path;
  const char* id;
};

class AProfileSFile : public ::testing::TestWithParam<NameCase> {};

INSTANTIATE_TEST_SUITE_P(
    All, AProfileSFile,
    ::testing::Values(NameCase{"Plain", "home.conf", "home"},
                      NameCase{"InAFolder", "/etc/vpn/home.ovpn", "home"},
                      NameCase{"WithoutExtension", "home", "home"},
                      NameCase{"WithTwoExtensions", "home.new.conf", "home.new"},
                      NameCase{"Hidden", ".conf", ".conf"}, NameCase{"StandardInput", "-", "stdin"},
                      NameCase{"WithControlCharacters", "a\tb\x7F.conf", "a_b_"},
                      NameCase{"OfTwoWords", "my home.conf", "my home"},
                      NameCase{"NotUtf8", "a\xFF.conf", "a\xEF\xBF\xBD"}),
    test::CaseName());

TEST_P(AProfileSFile, GivesItItsName) {
  EXPECT_EQ(ProfileIdOf(GetParam().path), GetParam().id);
}

TEST(AnOptionSName, IsNoPieceOfAKey) {
  EXPECT_TRUE(IsWireGuardName("PrivateKey"));
  EXPECT_TRUE(IsWireGuardName("persistentkeepalive"));
  EXPECT_TRUE(IsWireGuardName("Jc"));
  EXPECT_FALSE(IsWireGuardName("cHJpdmF0ZQ"));
  EXPECT_TRUE(IsOpenVpnName("--remote"));
  EXPECT_TRUE(IsOpenVpnName("</tls-crypt>"));
  EXPECT_TRUE(IsOpenVpnName("script-security"));
  EXPECT_FALSE(IsOpenVpnName("hunter2"));
  EXPECT_FALSE(IsOpenVpnName(""));
  EXPECT_TRUE(IsJsonName("certificate_path"));
  EXPECT_FALSE(IsJsonName("cHJpdmF0ZQ=="));
  EXPECT_FALSE(IsJsonName(std::string(49, 'a')));
}

TEST(ADictionary, OfAnotherShapeReadsAsEmpty) {
  const GVariantPtr odd = TakeVariant(g_variant_new_parsed(
      "{'stage': <1>, 'connectedAtEpochMillis': <'x'>, 'isReachable': <'x'>}"));
  const Snapshot snapshot = ReadSnapshot(odd.get());
  EXPECT_EQ(snapshot.stage, "");
  EXPECT_EQ(snapshot.connectedAt, 0);
  EXPECT_FALSE(ReadNetworkPath(odd.get()).reachable);
  EXPECT_EQ(ReadLogEntry(odd.get()).message, "");
}

std::string Without(const std::string& json, const std::string& path) {
  for (const JsonSpan& span : ReadJsonSpans(json)) {
    if (span.path == path) {
      return std::string(json).erase(span.cutBegin, span.cutEnd - span.cutBegin);
    }
  }
  return "no such span";
}

TEST(AJsonSpan, CanBeCutOutWithOneComma) {
  const std::string json = R"({"a": 1, "b": [2, {"c": "]\""}], "d": {}})";
  EXPECT_EQ(Without(json, "a"), R"({"b": [2, {"c": "]\""}], "d": {}})");
  EXPECT_EQ(Without(json, "b"), R"({"a": 1, "d": {}})");
  EXPECT_EQ(Without(json, "b[0]"), R"({"a": 1, "b": [{"c": "]\""}], "d": {}})");
  EXPECT_EQ(Without(json, "b[1]"), R"({"a": 1, "b": [2], "d": {}})");
  EXPECT_EQ(Without(json, "b[1].c"), R"({"a": 1, "b": [2, {}], "d": {}})");
  EXPECT_EQ(Without(json, "d"), R"({"a": 1, "b": [2, {"c": "]\""}]})");
}

TEST(AJsonSpan, IsNotLookedForInTextThatIsNotJson) {
  for (const char* text :
       {"", "{", "{'a': 1}", "{\"a\": }", "{\"a\" 1}", "{\"a\": \"", "[1,]", "{} x"}) {
    EXPECT_TRUE(ReadJsonSpans(text).empty()) << text;
  }
  EXPECT_TRUE(ReadJsonSpans(std::string(100000, '[')).empty());
}

}  // namespace
}  // namespace quorvex::control
