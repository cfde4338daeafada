// SPDX-License-Identifier: Apache-2.0
//
// What other programs' and users' words may do to a terminal: nothing.
#include <gtest/gtest.h>

#include <string>

#include "control/output.h"
#include "tests/unit/runtime/case_name.h"

namespace quorvex::control {
namespace {

struct PrintableCase {
  const char* name;
  std::string text;
  std::string printed;
};

class AForeignText : public ::testing::TestWithParam<PrintableCase> {};

INSTANTIATE_TEST_SUITE_P(
    With, AForeignText,
    ::testing::Values(
        PrintableCase{"LettersOfAllKinds", "home \u00e9\u6771 (1)", "home \u00e9\u6771 (1)"},
        PrintableCase{"AnEscape", "a\x1b[2Jb", "a?[2Jb"},
        PrintableCase{"ALineEnd", "a\nb\r", "a?b?"}, PrintableCase{"ADelete", "a\x7f", "a?"},
        PrintableCase{"AControlBeyondAscii", "a\u009b2Jb", "a?2Jb"},
        PrintableCase{"AMarkThatTurnsTheText", "a\u202eb\u2066c", "a?b?c"},
        PrintableCase{"BytesThatAreNoText", "a\xff", "a\ufffd"}, PrintableCase{"Nothing", "", ""}),
    test::CaseName());

TEST_P(AForeignText, IsPrintedWithoutWhatATerminalObeys) {
  EXPECT_EQ(Printable(GetParam().text), GetParam().printed);
}

}  // namespace
}  // namespace quorvex::control
