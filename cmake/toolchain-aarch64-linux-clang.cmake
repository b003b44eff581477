# As toolchain-aarch64-linux-gnu.cmake, but compiled by clang for the
# aarch64-linux-gnu target (same sysroot, libstdc++, binutils and qemu).
# clang is the Android NDK's compiler: this build is the closest check of the
# NDK's code generation that this machine can make.
set(VORL_AARCH64_USE_CLANG ON)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-aarch64-linux-gnu.cmake)
