#!/usr/bin/env bash
# 64-bit Arm cost per block without Arm hardware: cross-builds the library
# for aarch64, runs bench/block_loop under qemu user-mode emulation with the
# scalar and the NEON path, and counts the guest instructions qemu executes
# (its translation and execution logs). The difference between a long and a
# short run, per block, is a block's cost alone. Emulated time says nothing
# about an Arm core; instruction counts at least compare the two paths.
#
# Needs g++-aarch64-linux-gnu and qemu-user (scripts/setup.sh) and a native
# build in build/ for the built-in table (its vorl tool).
set -euo pipefail
cd "$(dirname "$0")/.."
dir=${VORL_ARM_BUILD:-build-arm}
[ -x build/tools/vorl/vorl ] || { echo "build the native tool first (README: cmake -S . -B build ...)" >&2; exit 1; }
cmake -S . -B "$dir" -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-aarch64-linux-gnu.cmake \
  -DCMAKE_BUILD_TYPE=Release -DVORL_BUILD_TESTS=OFF -DVORL_BUILD_TOOLS=OFF -DVORL_BUILD_BENCH=OFF >/dev/null
cmake --build "$dir" -j"$(nproc)" --target vorl_static >/dev/null
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
aarch64-linux-gnu-gcc -O2 -std=c11 -Iinclude bench/block_loop.c "$dir/libvorl.a" -lm -o "$work/block_loop"
build/tools/vorl/vorl table new "$work/table.tbl" -y >/dev/null

# Guest instructions of one run: each translated block's length from the
# translation log, summed over the execution log (chaining off, so every
# execution is logged).
count() {  # path, blocks, pulse
  VORL_SIMD=$1 QEMU_LD_PREFIX=/usr/aarch64-linux-gnu \
    qemu-aarch64 -d in_asm,exec,nochain -D "$work/log" "$work/block_loop" "$work/table.tbl" "$2" "$3" >/dev/null
  awk '/^IN:/ { intb = 1; n = 0; next }
       intb && /^0x/ { if (n == 0) { pc = substr($1, 3); sub(":", "", pc) } n++; next }
       intb { size[pc] = n; intb = 0 }
       /^Trace/ { split($4, a, "/"); p = a[2]; sub(/^0+/, "", p); total += size[p] }
       END { printf "%d\n", total }' "$work/log"
  rm -f "$work/log"
}

short=20 long=60
printf "%-8s %8s %22s\n" path pulse "instructions per block"
for pulse in 0 1; do
  for path in scalar neon; do
    a=$(count $path $short $pulse)
    b=$(count $path $long $pulse)
    per=$(( (b - a) / (long - short) ))
    printf "%-8s %8s %22d\n" $path $([ $pulse = 1 ] && echo on || echo off) $per
    eval "per_${path}_$pulse=$per"
  done
  awk -v s="$(eval echo \$per_scalar_$pulse)" -v n="$(eval echo \$per_neon_$pulse)" -v p=$pulse \
    'BEGIN { printf "scalar / neon, pulse %s: %.2f\n", p ? "on" : "off", s / n }'
done
