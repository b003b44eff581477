#!/usr/bin/env bash
# Sets up the machine, builds everything and runs every test suite.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh
jobs=$(nproc)

echo "== native build and unit tests"
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j"$jobs"
ctest --test-dir build --output-on-failure -j"$jobs"
