// SPDX-License-Identifier: Apache-2.0
#include "validation/json_engine_reading.h"

#include <string>
#include <vector>

#include "tests/unit/validation/json_text.h"

namespace quorvex::linux_service {
namespace {

struct FoldCase {
  const char* written;
  const char* option;
  bool folds = true;
};

TEST(AnOptionsName, IsFoundInEverySpellingThatGoFoldsToIt) {
  const std::vector<FoldCase> names = {
      {"log", "log"},
      {"LOG", "log"},
      {"Log", "log"},
      {"masterkeylog", "masterKeyLog"},
      {"\u017Fervices", "services"},
      {"serv\u0131ces", "services", false},
      {"net\u017F", "netns", false},
      {"netn\u017F", "netns"},
      {"networ\u212A", "network"},
      {"NETWOR\u212A", "network"},
      {"networ\u212A ", "network", false},
      {"", "log", false},
      {"lo", "log", false},
      {"logs", "log", false},
      {" log", "log", false},
      {"l\u00F6g", "log", false},
      {"k\xC5", "ks", false},
      {"interface-name", "interface_name", false},
  };
  for (const FoldCase& name : names) {
    EXPECT_EQ(FoldsTo(name.written, name.option), name.folds) << name.written;
  }
}

TEST(AValue, IsEmptyWhenItSetsNothing) {
  const test::JsonText empty(R"([null, false, 0, 0.0, -0.0, "", [], {}])");
  const test::JsonText full(R"([true, 1, -1, 0.5, " ", [null], {"a": null}])");
  for (guint index = 0; index < json_array_get_length(json_node_get_array(empty.Root())); ++index) {
    EXPECT_TRUE(IsEmptyValue(json_array_get_element(json_node_get_array(empty.Root()), index)));
  }
  for (guint index = 0; index < json_array_get_length(json_node_get_array(full.Root())); ++index) {
    EXPECT_FALSE(IsEmptyValue(json_array_get_element(json_node_get_array(full.Root()), index)));
  }
}

constexpr const char* kOfTable = "table";
constexpr const char* kOfOption = "option";
constexpr const char* kOfInner = "inner";
constexpr const char* kOfVariant = "variant";

const char* RefuseBad(JsonNode* value) {
  const char* text = JsonTextOf(value);
  return text != nullptr && std::string(text) == "bad" ? kOfOption : nullptr;
}

constexpr JsonOption kInnerOptions[] = {Plain("plain"), Forbidden("secret", nullptr)};
constexpr JsonOptionTable kInner = {kOfInner, kInnerOptions};
constexpr JsonOption kSharedOptions[] = {Forbidden("shared", nullptr)};
constexpr JsonOptionTable kShared = {kOfInner, kSharedOptions};
constexpr const JsonOptionTable* kParts[] = {&kShared};
constexpr JsonOption kFirstOptions[] = {Forbidden("first", kOfVariant)};
constexpr JsonOptionTable kFirst = {kOfVariant, kFirstOptions};
constexpr JsonOption kSecondOptions[] = {Plain("first"), Forbidden("second", kOfVariant)};
constexpr JsonOptionTable kSecond = {kOfVariant, kSecondOptions};
constexpr JsonVariant kVariants[] = {
    {"", &kFirst}, {"one", &kFirst}, {"two", &kSecond}, {"never", nullptr, kOfVariant}};
constexpr JsonOption kOptions[] = {
    Plain("plain"),
    Free("free"),
    Forbidden("forbidden", kOfOption),
    ForbiddenText("text", kOfOption),
    Object("object", kInner),
    Objects("objects", kInner, kOfOption),
    Judged("judged", RefuseBad, kOfOption),
    Plain("type"),
};
constexpr JsonOptionTable kTable = {kOfTable, kOptions, kParts, "type", kVariants};

struct ReadingCase {
  const char* text;
  // Null for an object that passes.
  const char* sentence = nullptr;
};

void ExpectSentences(const std::vector<ReadingCase>& objects) {
  for (const ReadingCase& object : objects) {
    const test::JsonText json(object.text);
    EXPECT_STREQ(ComplaintAboutOptions(json.Object(), kTable), object.sentence) << object.text;
  }
}

TEST(AnOption, IsJudgedByItsKind) {
  ExpectSentences({
      {R"({})"},
      {R"({"plain": "/etc/x", "free": {"Path": "/etc/x"}})"},
      {R"({"forbidden": "x"})", kOfOption},
      {R"({"forbidden": ["x"]})", kOfOption},
      {R"({"forbidden": 1})", kOfOption},
      {R"({"forbidden": ""})"},
      {R"({"text": "x"})", kOfOption},
      {R"({"text": ""})"},
      {R"({"text": ["x"]})"},
      {R"({"judged": "bad"})", kOfOption},
      {R"({"judged": "good"})"},
      {R"({"shared": 1})", kOfInner},
  });
}

TEST(AnObjectOfOptions, IsJudgedByItsOwnTable) {
  ExpectSentences({
      {R"({"object": {"plain": "/etc/x"}})"},
      {R"({"object": {"secret": "x"}})", kOfInner},
      {R"({"object": {"Plain": 1}})", kOfInner},
      {R"({"object": [{"secret": "x"}]})"},
      {R"({"object": "/etc/x"})"},
      {R"({"objects": {"secret": "x"}})", kOfInner},
      {R"({"objects": [{"plain": 1}, {"secret": "x"}]})", kOfInner},
      {R"({"objects": ["/etc/x", [{"secret": "x"}]]})"},
  });
}

TEST(AnotherSpelling, IsRefusedForEveryKindOfOption) {
  ExpectSentences({
      {R"({"Plain": 1})", kOfTable},
      {R"({"plain": 1, "PLAIN": 1})", kOfTable},
      {R"({"Free": null})", kOfTable},
      {R"({"Forbidden": null})", kOfOption},
      {R"({"Objects": []})", kOfOption},
      {R"({"\u017Fhared": null})", kOfInner},
      {R"({"TYPE": "one"})", kOfTable},
  });
}

TEST(ASelector, ChoosesFurtherOptions) {
  ExpectSentences({
      {R"({"first": 1})", kOfVariant},
      {R"({"type": "one", "first": 1})", kOfVariant},
      {R"({"first": 1, "type": "one"})", kOfVariant},
      {R"({"type": "two", "first": "/etc/x"})"},
      {R"({"type": "TWO", "second": 1})", kOfVariant},
      {R"({"type": "one", "second": 1})"},
      {R"({"type": "never"})", kOfVariant},
      {R"({"type": "unheard", "first": 1})", kOfVariant},
      {R"({"type": "unheard", "second": 1})", kOfVariant},
      {R"({"type": "unheard"})"},
      {R"({"type": ["two"], "first": 1})", kOfVariant},
  });
}

TEST(AForeignMember, PassesOnlyWhenItIsInert) {
  ExpectSentences({
      {R"({"foreign": "x", "other": [1, {"deep": ["text", null]}]})"},
      {R"({"foreign": "/etc/x"})", kOfTable},
      {R"({"foreign": ["x", {"deep": "https://x.test"}]})", kOfTable},
      {R"({"some_path": "x"})", kOfTable},
      {R"({"some_path": ""})"},
      {R"({"foreign": {"Listen": "::"}})", kOfTable},
      {R"({"foreign": {"listen": {}}})"},
      {R"({"foreign": {"command": ["x"]}})", kOfTable},
  });
}

}  // namespace
}  // namespace quorvex::linux_service
