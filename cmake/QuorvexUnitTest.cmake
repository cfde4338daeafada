# SPDX-License-Identifier: Apache-2.0
# Unit tests touch the real paths of the product, so each one runs in a private machine.

find_package(GTest REQUIRED)
pkg_check_modules(SECCOMP REQUIRED IMPORTED_TARGET libseccomp)

# quorvex_unit_test(NAME [SLOW] SOURCES ... LINK ... TIMEOUT seconds): a GoogleTest executable whose
# tests ctest runs one by one inside tests/support/private_run, with the label "unit". SLOW, for
# tests that wait for real time-outs, adds the label "slow". QUORVEX_TEST_ENVIRONMENT, one variable
# with its value, is what the tests run with.
function(quorvex_unit_test name)
  cmake_parse_arguments(ARG "SLOW" "TIMEOUT" "SOURCES;LINK" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 60)
  endif()
  set(properties LABELS unit TIMEOUT ${ARG_TIMEOUT})
  if(QUORVEX_TEST_ENVIRONMENT)
    list(APPEND properties ENVIRONMENT "${QUORVEX_TEST_ENVIRONMENT}")
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LINK} GTest::gmock_main)
  set_target_properties(${name} PROPERTIES CROSSCOMPILING_EMULATOR
                                           ${PROJECT_SOURCE_DIR}/tests/support/private_run)
  # Listed when ctest runs, so that building needs no root. A case goes by its own name: GoogleTest's
  # dump of its bytes differs from run to run.
  gtest_discover_tests(
    ${name}
    NO_PRETTY_VALUES
    DISCOVERY_MODE PRE_TEST
    DISCOVERY_TIMEOUT 60
    PROPERTIES ${properties})
  if(ARG_SLOW)
    quorvex_label_slow(${name})
  endif()
endfunction()

# gtest_discover_tests passes no list on, so a second label is set where ctest has read the tests.
function(quorvex_label_slow name)
  set(script ${CMAKE_CURRENT_BINARY_DIR}/${name}_slow.cmake)
  file(
    WRITE ${script}
    "if(${name}_TESTS)\n"
    "  set_tests_properties(\${${name}_TESTS} PROPERTIES LABELS \"unit;slow\")\n"
    "endif()\n")
  set_property(
    DIRECTORY
    APPEND
    PROPERTY TEST_INCLUDE_FILES ${script})
endfunction()
