// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace quorvex::test {

// Names a parameterised test after the `name` of its case.
struct CaseName {
  template <typename Case>
  std::string operator()(const ::testing::TestParamInfo<Case>& testCase) const {
    return testCase.param.name;
  }
};

}  // namespace quorvex::test
