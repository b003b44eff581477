#!/usr/bin/env bash
# Sets up the machine, builds everything and runs every test suite:
#  1. the native unit tests, tool tests and interface check (build/);
#  2. the same suite cross-built for 64-bit Arm and run under qemu, with the
#     check that no fused multiply-add reached the library (same digests);
#  3. AddressSanitizer + UndefinedBehaviorSanitizer over the suite, and
#     ThreadSanitizer over parallel instances;
#  4. each libFuzzer target for a bounded time (VORL_FUZZ_SECONDS, 60 s).
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh
jobs=$(nproc)

echo "== native build and tests"
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j"$jobs"
ctest --test-dir build --output-on-failure -j"$jobs"

./scripts/test-arm.sh
./scripts/test-sanitizers.sh
./scripts/fuzz.sh
echo "== all suites passed"
