// SPDX-License-Identifier: Apache-2.0
#include "control/command_line.h"

#include <gtest/gtest.h>

#include "tests/unit/runtime/case_name.h"

namespace quorvex::control {
namespace {

struct Outcome {
  Parsed parsed = Parsed::kWrong;
  CommandLine line;
  std::string words;
};

Outcome Parse(std::vector<std::string> words) {
  words.insert(words.begin(), "quorvexvpnctl");
  std::vector<char*> argv;
  for (std::string& word : words) {
    argv.push_back(word.data());
  }
  argv.push_back(nullptr);
  Outcome outcome;
  outcome.parsed =
      ParseCommandLine(static_cast<int>(words.size()), argv.data(), &outcome.line, &outcome.words);
  return outcome;
}

TEST(ACommandLine, CarriesItsOptionsInAnyOrder) {
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"connect", "a.conf", "-k", "-j", "-p", "wg", "--id=x"},
        std::vector<std::string>{"--json", "--protocol=wg", "--id", "x", "--kill-switch", "connect",
                                 "a.conf"}}) {
    const Outcome outcome = Parse(words);
    EXPECT_EQ(outcome.parsed, Parsed::kRun) << outcome.words;
    EXPECT_EQ(outcome.line.command, "connect");
    EXPECT_EQ(outcome.line.arguments, std::vector<std::string>{"a.conf"});
    EXPECT_TRUE(outcome.line.json && outcome.line.killSwitch);
    EXPECT_EQ(outcome.line.protocol, "wg");
    EXPECT_EQ(outcome.line.id, "x");
  }
}

TEST(ACommandLine, TakesADashForStandardInput) {
  EXPECT_EQ(Parse({"check", "-"}).line.arguments, std::vector<std::string>{"-"});
}

TEST(ACommandLine, AsksForHelpOrTheVersion) {
  EXPECT_EQ(Parse({"--help"}).parsed, Parsed::kHelp);
  EXPECT_EQ(Parse({"connect", "-h"}).parsed, Parsed::kHelp);
  EXPECT_EQ(Parse({"--version"}).parsed, Parsed::kVersion);
}

TEST(ACommandLine, AsksForJsonBesideWhatNobodyUnderstands) {
  EXPECT_TRUE(Parse({"status", "--json", "--jsn"}).line.json);
  EXPECT_TRUE(Parse({"--jsn", "-j"}).line.json);
  EXPECT_FALSE(Parse({"--jsn", "--", "-j"}).line.json);
  EXPECT_FALSE(Parse({"--jsn"}).line.json);
}

TEST(TheHelp, NamesEveryCommand) {
  const std::string help = Parse({"--help"}).words;
  for (const char* command :
       {"status", "connect", "disconnect", "watch", "keygen", "check", "doctor"}) {
    EXPECT_NE(help.find(std::string("\n  ") + command), std::string::npos) << command;
  }
}

struct WrongCase {
  const char* name;
  std::vector<std::string> words;
  const char* complaint;
};

class AWrongCommandLine : public ::testing::TestWithParam<WrongCase> {};

INSTANTIATE_TEST_SUITE_P(
    All, AWrongCommandLine,
    ::testing::Values(
        WrongCase{"Nothing", {}, "No command is given."},
        WrongCase{"UnknownCommand", {"start"}, "There is no command \"start\"."},
        WrongCase{"UnknownOption", {"status", "--loud"}, "Unknown option --loud."},
        WrongCase{
            "NoFile", {"connect"}, "connect needs a profile's file, or - for standard input."},
        WrongCase{"TwoFiles", {"check", "a", "b"}, "Too many arguments for check."},
        WrongCase{"ArgumentOfStatus", {"status", "x"}, "Too many arguments for status."},
        WrongCase{"ProtocolOfStatus",
                  {"status", "-p", "wg"},
                  "--protocol and --id do not belong to status."},
        WrongCase{
            "NameOfWatch", {"watch", "--id=x"}, "--protocol and --id do not belong to watch."},
        WrongCase{
            "KillSwitchOfCheck", {"check", "a", "-k"}, "--kill-switch does not belong to check."},
        WrongCase{"ConnectedOfDoctor",
                  {"doctor", "--connected"},
                  "--connected does not belong to doctor."}),
    test::CaseName());

TEST_P(AWrongCommandLine, IsAnsweredWithWhatIsWrong) {
  const Outcome outcome = Parse(GetParam().words);
  EXPECT_EQ(outcome.parsed, Parsed::kWrong);
  EXPECT_EQ(outcome.words, GetParam().complaint);
}

}  // namespace
}  // namespace quorvex::control
