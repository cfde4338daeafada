# SPDX-License-Identifier: Apache-2.0
# Unit tests touch the real paths of the product, so each one runs in a private machine.

find_package(GTest REQUIRED)
pkg_check_modules(SECCOMP REQUIRED IMPORTED_TARGET libseccomp)

# quorvex_unit_test(NAME [SLOW] SOURCES ... LINK ... TIMEOUT seconds): a GoogleTest executable that
# ctest runs as one entry inside tests/support/private_run, with the label "unit": a thousand
# processes of their own would cost more than the tests. SLOW, for tests that wait for real
# time-outs, adds the label "slow". QUORVEX_TEST_ENVIRONMENT, one variable with its value, is what
# the tests run with.
function(quorvex_unit_test name)
  cmake_parse_arguments(ARG "SLOW" "TIMEOUT" "SOURCES;LINK" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 600)
  endif()
  set(labels unit)
  if(ARG_SLOW)
    list(APPEND labels slow)
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LINK} GTest::gmock_main)
  add_test(NAME unit/${name} COMMAND ${PROJECT_SOURCE_DIR}/tests/support/private_run
                                     $<TARGET_FILE:${name}> --gtest_brief=1)
  set_tests_properties(
    unit/${name} PROPERTIES LABELS "${labels}" TIMEOUT ${ARG_TIMEOUT} ENVIRONMENT
                            "${QUORVEX_TEST_ENVIRONMENT}")
endfunction()
