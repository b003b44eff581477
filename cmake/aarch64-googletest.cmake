# Included at the end of project(libvorl) in a cross build (see the
# toolchain file): builds GoogleTest for the target from Debian's sources
# and makes find_package(GTest) resolve to those targets.
if(NOT CMAKE_CROSSCOMPILING OR TARGET gtest)
  return()
endif()
if(DEFINED VORL_BUILD_TESTS AND NOT VORL_BUILD_TESTS)
  return()
endif()

set(VORL_GOOGLETEST_SOURCE /usr/src/googletest CACHE PATH
    "GoogleTest sources to build for the target (Debian package googletest)")
if(NOT EXISTS ${VORL_GOOGLETEST_SOURCE}/CMakeLists.txt)
  message(FATAL_ERROR "No GoogleTest sources at ${VORL_GOOGLETEST_SOURCE}: "
                      "install the Debian package googletest (scripts/setup.sh)")
endif()

set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
add_subdirectory(${VORL_GOOGLETEST_SOURCE} ${CMAKE_BINARY_DIR}/_googletest EXCLUDE_FROM_ALL)
# GoogleTest 1.11 and later declare these names themselves.
if(NOT TARGET GTest::gtest)
  add_library(GTest::gtest ALIAS gtest)
  add_library(GTest::gtest_main ALIAS gtest_main)
endif()

# An empty package configuration: the targets above already exist.
set(_vorl_gtest_config_dir ${CMAKE_BINARY_DIR}/_googletest/config)
file(WRITE ${_vorl_gtest_config_dir}/GTestConfig.cmake
     "# GoogleTest is built in this tree (aarch64-googletest.cmake).\n")
set(GTest_DIR ${_vorl_gtest_config_dir} CACHE PATH "GoogleTest built for the target" FORCE)
unset(_vorl_gtest_config_dir)
