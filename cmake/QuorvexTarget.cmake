# SPDX-License-Identifier: Apache-2.0
# The compiler settings that every target of the project shares.

add_library(quorvex_flags INTERFACE)
target_compile_features(quorvex_flags INTERFACE cxx_std_20)
target_include_directories(quorvex_flags INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(
  quorvex_flags
  INTERFACE -Wall
            -Wextra
            -Wpedantic
            -Wconversion
            -Wsign-conversion
            -Wshadow
            -Wold-style-cast
            -Wnon-virtual-dtor
            -Woverloaded-virtual
            -Wformat=2
            -Wimplicit-fallthrough
            -Werror)
# GCC 12 sees overlapping copies where a literal is assigned to a std::string (its bug 105651).
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(quorvex_flags INTERFACE -Wno-restrict)
endif()
# Debian's own hardening set, for builds outside a Debian package too.
target_compile_options(quorvex_flags INTERFACE -fstack-protector-strong -fPIE)
target_link_options(
  quorvex_flags INTERFACE -pie -Wl,-z,relro -Wl,-z,now -Wl,--as-needed)
if(CMAKE_BUILD_TYPE STREQUAL "Release" OR CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo")
  target_compile_definitions(quorvex_flags INTERFACE _FORTIFY_SOURCE=2)
endif()

if(QUORVEX_SANITIZE)
  target_compile_options(
    quorvex_flags INTERFACE -fsanitize=${QUORVEX_SANITIZE} -fno-sanitize-recover=undefined
                            -fno-omit-frame-pointer)
  # GCC sees uninitialised values in the code that the sanitizers add around the standard library.
  target_compile_options(quorvex_flags INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  target_link_options(quorvex_flags INTERFACE -fsanitize=${QUORVEX_SANITIZE})
endif()
if(QUORVEX_COVERAGE)
  target_compile_options(quorvex_flags INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(quorvex_flags INTERFACE --coverage)
endif()

# quorvex_library(NAME SOURCES ... LINK ...): one static library with the shared settings.
function(quorvex_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC quorvex_flags ${ARG_LINK})
endfunction()
