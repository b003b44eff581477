#!/usr/bin/env bash
# 64-bit Arm: cross-builds the library and the whole unit-test suite for
# aarch64 Linux, checks that the library's machine code holds no fused
# multiply-add, and runs every test under qemu user-mode emulation. The
# tests pin whole outputs by digest, so passing here means the Arm build
# computes the same bits as the native one.
#
# Two compilers: Debian's aarch64 GCC (build-arm) and clang for the same
# target (build-arm-clang; clang is what the Android NDK uses). Set
# VORL_ARM_CLANG=0 to skip the clang build.
#
# The command-line tool is not built: it needs libsndfile and nlohmann-json
# for arm64, which the machine does not have (only the amd64 packages).
# Run from anywhere after scripts/setup.sh; needs g++-aarch64-linux-gnu,
# binutils-aarch64-linux-gnu, qemu-user and googletest (sources).
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc)
generator=()
command -v ninja >/dev/null 2>&1 && generator=(-G Ninja)

arm_suite() {  # name, build dir, toolchain file, compiler for the check's self-test
  local name=$1 dir=$2 toolchain=$3 cc=$4
  echo "== aarch64 ($name): the fused multiply-add check finds fused code when there is some"
  CC="$cc" scripts/check-no-fma.sh --self-test

  echo "== aarch64 ($name): build"
  cmake -S . -B "$dir" "${generator[@]}" -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
    -DCMAKE_BUILD_TYPE=Release -DVORL_BUILD_TESTS=ON -DVORL_BUILD_TOOLS=OFF -DVORL_BUILD_BENCH=OFF >/dev/null
  cmake --build "$dir" -j"$jobs"
  aarch64-linux-gnu-objdump -f "$dir/libvorl.so" | grep -q 'architecture: aarch64' ||
    { echo "not an aarch64 library: $dir/libvorl.so" >&2; exit 1; }

  echo "== aarch64 ($name): no fused multiply-add in the library"
  scripts/check-no-fma.sh "$dir/libvorl.so" "$dir/libvorl.a"

  echo "== aarch64 ($name): unit tests under qemu-aarch64"
  ctest --test-dir "$dir" --output-on-failure --no-tests=error -j"$jobs"
}

arm_suite gcc build-arm cmake/toolchain-aarch64-linux-gnu.cmake aarch64-linux-gnu-gcc
if [ "${VORL_ARM_CLANG:-1}" != 0 ]; then
  arm_suite clang build-arm-clang cmake/toolchain-aarch64-linux-clang.cmake "clang --target=aarch64-linux-gnu"
fi
