// SPDX-License-Identifier: Apache-2.0
//
// What a JSON profile may name nowhere in its tree, and how its members are read.
#include <vector>

#include "tests/unit/validation/json_text.h"
#include "validation/json_guards.h"

namespace quorvex::linux_service {
namespace {

bool ContainsForbiddenFileMember(JsonNode* node) {
  return FindForbiddenReferences(node).file;
}

bool ContainsForbiddenExternalResource(JsonNode* node) {
  return FindForbiddenReferences(node).external;
}

using test::JsonText;

struct SearchCase {
  const char* name;
  std::string text;
};

void ExpectEach(bool (*search)(JsonNode*), bool found, const std::vector<SearchCase>& trees) {
  for (const SearchCase& tree : trees) {
    EXPECT_EQ(search(JsonText(tree.text).Root()), found) << tree.name << ": " << tree.text;
  }
}

TEST(AForbiddenFile, IsFoundByItsName) {
  ExpectEach(ContainsForbiddenFileMember, true,
             {{"CertificatePath", R"({"certificate_path": "/etc/x.pem"})"},
              {"CertificateFile", R"({"certificatefile": "/etc/x.pem"})"},
              {"KeyPath", R"({"key_path": "/etc/x.pem"})"},
              {"KeyFile", R"({"keyfile": "/etc/x.pem"})"},
              {"InCamelCase", R"({"certificateFile": "x"})"},
              {"InCapitals", R"({"KEY_PATH": "x"})"},
              {"InMixedCase", R"({"Certificate_Path": "x"})"},
              {"WithAnEscape", R"({"key\u0066ile": "x"})"}});
}

TEST(AForbiddenFile, IsFoundWithAnyTextOrArray) {
  ExpectEach(ContainsForbiddenFileMember, true,
             {{"Blank", R"({"keyfile": " "})"},
              {"OneElement", R"({"keyfile": ["/etc/x.pem"]})"},
              {"AnEmptyElement", R"({"keyfile": [""]})"},
              {"ANullElement", R"({"keyfile": [null]})"},
              {"ANumberElement", R"({"keyfile": [0]})"},
              {"NestedEmptyArrays", R"({"keyfile": [[]]})"},
              {"AnObjectElement", R"({"keyfile": [{}]})"}});
}

TEST(AForbiddenFile, IsFoundAnywhere) {
  ExpectEach(ContainsForbiddenFileMember, true,
             {{"AMember", R"({"tls": {"KeyFile": "/etc/x.pem"}})"},
              {"AnElement", R"({"a": [1, {"keyfile": "x"}]})"},
              {"AnArrayAsRoot", R"([[], [{"keyfile": "x"}]])"},
              {"DeepDown", R"({"a": [{"b": {"c": [[{"keyfile": "x"}]]}}]})"},
              {"TheLastMember", R"({"a": {}, "b": "x", "keyfile": "x"})"},
              {"AnEmptyNamesake", R"({"keyfile": "", "KeyFile": "x"})"},
              {"AnObjectOfThatName", R"({"keyfile": {"key_path": "x"}})"},
              {"AnotherNameWithAnArray", R"({"files": [{"key_path": "x"}]})"}});
}

TEST(AHarmlessFile, HasAnotherValue) {
  ExpectEach(ContainsForbiddenFileMember, false,
             {{"EmptyText", R"({"keyfile": ""})"},
              {"EmptyArray", R"({"keyfile": []})"},
              {"Number", R"({"keyfile": 1})"},
              {"Fraction", R"({"keyfile": 1.5})"},
              {"True", R"({"keyfile": true})"},
              {"False", R"({"keyfile": false})"},
              {"Null", R"({"keyfile": null})"},
              {"EmptyObject", R"({"keyfile": {}})"},
              {"ObjectOfOtherNames", R"({"keyfile": {"a": "/etc/x.pem"}})"}});
}

TEST(AHarmlessFile, HasAnotherName) {
  ExpectEach(ContainsForbiddenFileMember, false,
             {{"Certificate", R"({"certificate": ["x"], "key": "x"})"},
              {"KeyFileWithUnderscore", R"({"key_file": "x"})"},
              {"KeyPathWithout", R"({"keypath": "x", "certificatepath": "x"})"},
              {"WithBlanks", R"({" keyfile": "x", "keyfile ": "x"})"},
              {"Longer", R"({"keyfiles": "x", "mykeyfile": "x"})"},
              {"Nothing", R"({"": "x"})"},
              {"InAValue", R"({"a": "keyfile", "b": ["key_path"]})"}});
}

TEST(AHarmlessFile, IsNoMember) {
  ExpectEach(ContainsForbiddenFileMember, false,
             {{"Text", R"("keyfile")"},
              {"Null", "null"},
              {"Number", "1"},
              {"Empty", "{}"},
              {"Array", "[]"}});
}

TEST(AnExternalResource, IsFoundByItsPrefix) {
  ExpectEach(ContainsForbiddenExternalResource, true,
             {{"WithExt", R"("ext:custom.dat:cn")"},
              {"WithExtIp", R"("ext-ip:custom.dat:cn")"},
              {"InCapitals", R"("EXT:custom.dat:cn")"},
              {"InMixedCase", R"("Ext-Ip:custom.dat:cn")"},
              {"OfThePrefixOnly", R"("ext:")"},
              {"OfTheOtherPrefixOnly", R"("ext-ip:")"},
              {"AsAMember", R"({"a": "ext:x"})"},
              {"AsTheLastMember", R"({"a": 1, "b": {}, "c": "ext:x"})"},
              {"AsAnElement", R"({"a": ["geoip:cn", "EXT:custom.dat:cn"]})"},
              {"InAnArrayAsRoot", R"([["ext:x"]])"},
              {"DeepDown", R"({"a": [{"b": {"c": [["ext-ip:x"]]}}]})"}});
}

TEST(AnExternalResource, IsFoundAsALocalRuleSet) {
  ExpectEach(ContainsForbiddenExternalResource, true,
             {{"AtRoot", R"({"type": "local", "path": "/tmp/r.srs"})"},
              {"InCapitals", R"({"type": "LOCAL", "path": "/tmp/r.srs"})"},
              {"WithThePathFirst", R"({"path": "r", "a": 1, "type": "Local"})"},
              {"AsAMember", R"({"a": {"type": "local", "path": "r"}})"},
              {"AsAnElement", R"({"a": [{}, {"type": "local", "path": " "}]})"},
              {"BelowAHarmlessOne",
               R"({"type": "local", "path": "", "a": {"type": "local",
                                     "path": "r"}})"},
              {"WithAnExternalText", R"({"type": "local", "path": "", "a": "ext:x"})"},
              {"OfRemoteTypeWithAnExternalPath", R"({"type": "remote", "path": "ext:x"})"}});
}

TEST(AnInternalResource, HasAnotherPrefix) {
  ExpectEach(ContainsForbiddenExternalResource, false,
             {{"WithGeoIp", R"("geoip:cn")"},
              {"WithGeoSite", R"({"a": ["geosite:cn"]})"},
              {"WithoutColon", R"(["ext", "ext-ip", "external"])"},
              {"OfALongerWord", R"(["extra:x", "ext-ipv6:x", "ext -ip:x"])"},
              {"BehindABlank", R"([" ext:x", "\text-ip:x"])"},
              {"WithThePrefixInside", R"(["geoip:ext:x", "next:x"])"},
              {"AsAName", R"({"ext:x": 1, "ext-ip:y": "z"})"},
              {"Empty", R"("")"}});
}

TEST(AnInternalResource, IsNoLocalRuleSet) {
  ExpectEach(ContainsForbiddenExternalResource, false,
             {{"WithoutPath", R"({"type": "local"})"},
              {"WithAnEmptyPath", R"({"type": "local", "path": ""})"},
              {"WithAPathOfAnotherKind",
               R"([{"type": "local", "path": ["r"]}, {"type": "local", "path": 1},
                                     {"type": "local", "path": null},
                                     {"type": "local", "path": {"path": "r"}}])"},
              {"OfAnotherType", R"({"type": "remote", "path": "r"})"},
              {"OfALongerType", R"({"type": "local ", "path": "r"})"},
              {"OfATypeOfAnotherKind", R"({"type": ["local"], "path": "r"})"},
              {"WithoutType", R"({"path": "r"})"},
              {"WithNamesInCapitals", R"({"TYPE": "local", "Path": "r"})"},
              {"InTwoObjects", R"({"type": "local", "a": {"path": "r"}})"}});
}

TEST(AnInternalResource, IsNoText) {
  ExpectEach(ContainsForbiddenExternalResource, false,
             {{"Numbers", "[1, 1.5]"},
              {"Booleans", "[true, false]"},
              {"Null", "null"},
              {"Object", "{}"},
              {"Array", "[]"}});
}

TEST(AMissingNode, HoldsNothingForbidden) {
  EXPECT_FALSE(ContainsForbiddenFileMember(nullptr));
  EXPECT_FALSE(ContainsForbiddenExternalResource(nullptr));
}

TEST(AJsonMember, HasANonEmptyString) {
  const JsonText json(R"({"text": "x", "blank": " ", "empty": "", "number": 1, "true": true,
                          "null": null, "array": ["x"], "object": {"x": "x"}})");
  EXPECT_TRUE(JsonMemberHasNonEmptyString(json.Object(), "text"));
  EXPECT_TRUE(JsonMemberHasNonEmptyString(json.Object(), "blank"));
  for (const char* name :
       {"empty", "number", "true", "null", "array", "object", "missing", "Text"}) {
    EXPECT_FALSE(JsonMemberHasNonEmptyString(json.Object(), name)) << name;
  }
  EXPECT_FALSE(JsonMemberHasNonEmptyString(nullptr, "text"));
}

TEST(AJsonMember, EqualsATextInAnyLetterCase) {
  const JsonText json(R"({"plain": "tun", "capitals": "TUN", "empty": "", "accented": "\u00e9"})");
  EXPECT_TRUE(JsonStringEquals(json.Object(), "plain", "tun"));
  EXPECT_TRUE(JsonStringEquals(json.Object(), "plain", "TuN"));
  EXPECT_TRUE(JsonStringEquals(json.Object(), "capitals", "tun"));
  EXPECT_TRUE(JsonStringEquals(json.Object(), "empty", ""));
  EXPECT_FALSE(JsonStringEquals(json.Object(), "plain", "tun0"));
  EXPECT_FALSE(JsonStringEquals(json.Object(), "plain", "tu"));
  EXPECT_FALSE(JsonStringEquals(json.Object(), "plain", " tun"));
  EXPECT_FALSE(JsonStringEquals(json.Object(), "empty", "tun"));
  // Only ASCII letters have a case here.
  EXPECT_TRUE(JsonStringEquals(json.Object(), "accented", "é"));
  EXPECT_FALSE(JsonStringEquals(json.Object(), "accented", "É"));
}

TEST(AJsonMember, EqualsNoTextUnlessItIsAString) {
  const JsonText json(R"({"number": 1, "true": true, "null": null, "array": ["1"], "object": {}})");
  for (const char* name : {"number", "true", "null", "array", "object", "missing"}) {
    for (const char* expected : {"1", "true", "null", ""}) {
      EXPECT_FALSE(JsonStringEquals(json.Object(), name, expected)) << name << " " << expected;
    }
  }
  EXPECT_FALSE(JsonStringEquals(nullptr, "number", ""));
}

TEST(AJsonMember, IsTrueOnlyAsABoolean) {
  const JsonText json(R"({"true": true, "false": false, "text": "true", "one": 1, "fraction": 1.0,
                          "null": null, "array": [true], "object": {"true": true}})");
  EXPECT_TRUE(JsonBooleanIsTrue(json.Object(), "true"));
  for (const char* name :
       {"false", "text", "one", "fraction", "null", "array", "object", "missing", "True"}) {
    EXPECT_FALSE(JsonBooleanIsTrue(json.Object(), name)) << name;
  }
  EXPECT_FALSE(JsonBooleanIsTrue(nullptr, "true"));
}

// Parsed as a profile, whose tokens may spare the walk of its tree.
JsonProfile ProfileOf(const SearchCase& profile) {
  JsonProfile parsed;
  EXPECT_TRUE(ParseJsonProfile(profile.text, &parsed).valid) << profile.name;
  return parsed;
}

TEST(AReferenceInAProfile, IsFoundInEverySpelling) {
  for (const SearchCase& profile : std::vector<SearchCase>{
           {"AFileInCapitals", R"({"KEYFILE": "x"})"},
           {"AFileWithAnEscape", R"({"key\u0066ile": "x"})"},
           {"AFileCutAtANul", R"({"keyfile\u0000x": "x"})"},
           {"AListInSingleQuotes", "{'a': 'EXT:x'}"},
           {"AnAddressList", R"({"a": ["ext-ip:x"]})"},
           {"ALocalSet", R"({"type": "Local", "path": "x"})"},
           {"ALocalSetBehindAComment", R"({"type"/**/: "local", "path": "x"})"},
           {"ALocalSetAtLast", R"({"path": "x", "type": "remote", "type": "local"})"}}) {
    const ForbiddenReferences found = FindForbiddenReferences(ProfileOf(profile));
    EXPECT_TRUE(found.file || found.external) << profile.name;
  }
}

TEST(AProfile, IsKnownByItsTokensToLackReferences) {
  for (const SearchCase& profile : std::vector<SearchCase>{
           {"OfPlainWords", R"({"type": "vless", "tag": "local", "path": "/x"})"},
           {"OfSimilarNames", R"({"keyfiles": "x", "key": "x", "external": "text:x", "a": "ext"})"},
           {"OfEmptyTexts", R"({"": ""})"}}) {
    EXPECT_TRUE(ProfileOf(profile).lacksReferences) << profile.name;
  }
  EXPECT_FALSE(ProfileOf({"WithAnInnocentName", R"({"keyfile": 1})"}).lacksReferences);
}

// json-glib takes a blank behind a dollar sign, at which the guard stops reading.
TEST(AProfile, IsWalkedWhereItsTokensWereNotReadToTheEnd) {
  const JsonProfile profile = ProfileOf({"Unread", R"({"a": $ 1, "keyfile": "x", "b": "\0"})"});
  EXPECT_FALSE(profile.lacksReferences);
  EXPECT_FALSE(profile.survivesRewriting);
  EXPECT_TRUE(FindForbiddenReferences(profile).file);
}

TEST(AProfile, IsKnownByItsTokensToSurviveRewriting) {
  EXPECT_TRUE(ProfileOf({"Plain", R"({"a": "b", "c": 1.5})"}).survivesRewriting);
  EXPECT_FALSE(ProfileOf({"ABareControl", "{\"a\": \"\x1F\"}"}).survivesRewriting);
  EXPECT_FALSE(ProfileOf({"AnEscapedControl", R"({"a": "\u001f"})"}).survivesRewriting);
  EXPECT_FALSE(ProfileOf({"ALargeNumber", R"({"a": 18446744073709551616})"}).survivesRewriting);
}

}  // namespace
}  // namespace quorvex::linux_service
