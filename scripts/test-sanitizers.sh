#!/usr/bin/env bash
# Sanitizer builds (clang):
#  1. AddressSanitizer + UndefinedBehaviorSanitizer (leak detection on,
#     -fno-sanitize-recover=all) over the whole test suite, the fuzzing
#     replays included, in build-asan.
#  2. ThreadSanitizer over the parallel-instances test and the tool's
#     background reading and writing in build-tsan; any report fails it
#     (the shared diagnostic dval included).
# Both keep the library's floating-point rules (-ffp-contract=off). The
# exported-symbol check is left to the normal build: the instrumentation
# exports type descriptors of its own (-fsanitize=function).
# VORL_SAN_TOOLS=OFF leaves the command-line tool out of the ASan build.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc)
generator=()
command -v ninja >/dev/null 2>&1 && generator=(-G Ninja)
common="-g -fno-omit-frame-pointer -ffp-contract=off -fno-fast-math"

# The plugin and the Python module are loaded by hosts (ffmpeg, python3)
# that do not carry the sanitizer runtime, so they are left out here.
configure() {  # build dir, sanitizer flags, further cmake arguments
  local dir=$1 flags=$2
  shift 2
  cmake -S . -B "$dir" "${generator[@]}" -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_C_FLAGS="$flags $common" -DCMAKE_CXX_FLAGS="$flags $common" \
    -DCMAKE_EXE_LINKER_FLAGS="$flags" -DCMAKE_SHARED_LINKER_FLAGS="$flags" \
    -DVORL_BUILD_TESTS=ON -DVORL_BUILD_BENCH=OFF -DVORL_BUILD_LV2=OFF -DVORL_BUILD_PYTHON=OFF "$@" >/dev/null
}

echo "== AddressSanitizer + UndefinedBehaviorSanitizer: whole test suite"
# The function-type check needs the C++ part of the UBSan runtime, which the
# C host example (linked as C) does not get; the library's own indirect calls
# are to its kernel tables, whose types the compiler checks.
configure build-asan "-fsanitize=address,undefined -fno-sanitize=function -fno-sanitize-recover=all" \
  -DVORL_BUILD_TOOLS="${VORL_SAN_TOOLS:-ON}"
cmake --build build-asan -j"$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:detect_stack_use_after_return=1:check_initialization_order=1:strict_init_order=1 \
UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir build-asan --output-on-failure --no-tests=error -j"$jobs" -E '^exported_symbols$'

echo "== ThreadSanitizer: instances on parallel threads, the tool's reading ahead and writing behind"
configure build-tsan "-fsanitize=thread"
cmake --build build-tsan -j"$jobs" --target test_threads test_background_io
TSAN_OPTIONS=halt_on_error=1:abort_on_error=1:second_deadlock_stack=1 \
  ctest --test-dir build-tsan -R '^(ParallelInstances|ReadAhead|WriteBehind)\.' --output-on-failure --no-tests=error
