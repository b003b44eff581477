# Cross build for 64-bit Arm Linux with Debian's GNU cross toolchain, tests
# run under qemu user-mode emulation:
#
#   cmake -S . -B build-arm -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-aarch64-linux-gnu.cmake
#
# Needs g++-aarch64-linux-gnu, binutils-aarch64-linux-gnu and qemu-user.
# GoogleTest is compiled for the target from Debian's sources in
# /usr/src/googletest (package googletest) by aarch64-googletest.cmake.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(VORL_AARCH64_TRIPLE aarch64-linux-gnu)
set(VORL_AARCH64_SYSROOT /usr/${VORL_AARCH64_TRIPLE})

if(VORL_AARCH64_USE_CLANG)
  # toolchain-aarch64-linux-clang.cmake: clang, the Android NDK's compiler,
  # with the same sysroot, GNU libstdc++ and binutils.
  set(CMAKE_C_COMPILER clang)
  set(CMAKE_CXX_COMPILER clang++)
  set(CMAKE_C_COMPILER_TARGET ${VORL_AARCH64_TRIPLE})
  set(CMAKE_CXX_COMPILER_TARGET ${VORL_AARCH64_TRIPLE})
else()
  set(CMAKE_C_COMPILER ${VORL_AARCH64_TRIPLE}-gcc)
  set(CMAKE_CXX_COMPILER ${VORL_AARCH64_TRIPLE}-g++)
endif()

# Libraries and headers of the target come from the cross sysroot only;
# programs (cmake helpers, python) from the build machine.
set(CMAKE_FIND_ROOT_PATH ${VORL_AARCH64_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# ctest and gtest_discover_tests run the target's programs through qemu,
# which finds the Arm dynamic loader and libraries in the sysroot.
find_program(VORL_QEMU_AARCH64 qemu-aarch64 REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${VORL_QEMU_AARCH64} -L ${VORL_AARCH64_SYSROOT})

# The project's tests find GoogleTest with find_package(GTest); there is no
# Arm build of it on the machine, so it is built from source inside the
# cross build once the project is declared.
set(CMAKE_PROJECT_libvorl_INCLUDE ${CMAKE_CURRENT_LIST_DIR}/aarch64-googletest.cmake)
