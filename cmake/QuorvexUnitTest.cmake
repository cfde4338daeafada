# SPDX-License-Identifier: Apache-2.0
# Unit tests touch the real paths of the product, so each one runs in a private machine.

find_package(GTest REQUIRED)
pkg_check_modules(SECCOMP REQUIRED IMPORTED_TARGET libseccomp)

# quorvex_unit_test(NAME [SLOW] SOURCES ... LINK ... TIMEOUT seconds): a GoogleTest executable whose
# tests ctest runs one by one inside tests/support/private_run, with the label "unit"; SLOW, for
# tests that wait for real time-outs, adds the label "slow".
function(quorvex_unit_test name)
  cmake_parse_arguments(ARG "SLOW" "TIMEOUT" "SOURCES;LINK" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 60)
  endif()
  set(labels unit)
  if(ARG_SLOW)
    # Escaped so that the list stays one value on its way to the generated test file.
    set(labels "unit\\;slow")
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LINK} GTest::gmock_main)
  set_target_properties(${name} PROPERTIES CROSSCOMPILING_EMULATOR
                                           ${PROJECT_SOURCE_DIR}/tests/support/private_run)
  # Listed when ctest runs, so that building needs no root.
  gtest_discover_tests(
    ${name}
    DISCOVERY_MODE PRE_TEST
    DISCOVERY_TIMEOUT 60
    PROPERTIES LABELS "${labels}" TIMEOUT ${ARG_TIMEOUT})
endfunction()
