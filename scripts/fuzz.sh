#!/usr/bin/env bash
# Builds the libFuzzer targets in fuzz/ (clang, AddressSanitizer and
# UndefinedBehaviorSanitizer) and runs each for a bounded time on a copy of
# its seed corpus plus its saved regressions; the repository is not modified.
#
#   VORL_FUZZ_SECONDS  seconds per target (default 60)
#   VORL_FUZZ_TARGETS  targets to run (default: table_host dc_cut pulse_filter
#                      table_json drive_file)
#
# A crash, leak, time-out or broken invariant fails the script; the input
# that caused it is kept in build-fuzz/artifacts/<target>/. To turn it into a
# regression test, copy it to fuzz/regressions/<target>/: the normal build
# replays every file there (ctest -R fuzz_replay).
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${VORL_FUZZ_SECONDS:-60}
targets=${VORL_FUZZ_TARGETS:-table_host dc_cut pulse_filter table_json drive_file}
build=build-fuzz
generator=()
command -v ninja >/dev/null 2>&1 && generator=(-G Ninja)

echo "== fuzz: build (clang, -fsanitize=fuzzer,address,undefined)"
cmake -S . -B "$build" "${generator[@]}" -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_BUILD_TYPE=Release -DVORL_BUILD_FUZZ=ON -DVORL_BUILD_TESTS=OFF -DVORL_BUILD_TOOLS=OFF -DVORL_BUILD_BENCH=OFF >/dev/null
build_targets=()
for t in $targets; do build_targets+=("fuzz_$t"); done
cmake --build "$build" -j"$(nproc)" --target "${build_targets[@]}"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=()
for t in $targets; do
  corpus="$work/corpus-$t"
  artifacts="$build/artifacts/$t"
  mkdir -p "$corpus" "$artifacts"
  cp fuzz/corpus/"$t"/* "$corpus"/
  if [ -d fuzz/regressions/"$t" ] && [ -n "$(ls -A fuzz/regressions/"$t")" ]; then
    cp fuzz/regressions/"$t"/* "$corpus"/
  fi
  echo "== fuzz: $t for ${seconds}s ($(ls "$corpus" | wc -l) seed inputs)"
  # -close_fd_mask=3 hides the library's dump and diagnostics; libFuzzer and
  # sanitizer reports still reach the terminal.
  if "$build/fuzz/fuzz_$t" "$corpus" -max_total_time="$seconds" -max_len=8192 -timeout=30 \
       -rss_limit_mb=2048 -close_fd_mask=3 -print_final_stats=1 \
       -artifact_prefix="$artifacts/" 2>"$work/$t.log"; then
    grep -E '^(Done|stat::number_of_executed_units|stat::peak_rss_mb)|#[0-9]+.*DONE' "$work/$t.log" || true
  else
    tail -n 60 "$work/$t.log"
    echo "== fuzz: $t FAILED; inputs kept in $artifacts/:"
    ls -l "$artifacts"
    failed+=("$t")
  fi
done

if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: failures in: ${failed[*]}"
  exit 1
fi
echo "fuzz: no failure in: $targets"
