#!/usr/bin/env bash
# Fails if 64-bit Arm or x86-64 machine code contains a fused multiply-add:
# the library's results are defined with every product and sum rounded on
# its own, GCC contracts a*b+c into one instruction on Arm unless told not
# to, and the x86-64 vector paths must not use FMA instructions either.
#
#   scripts/check-no-fma.sh FILE...     disassemble FILEs (.so, .a, .o), list
#                                       every fused instruction, fail if any
#   scripts/check-no-fma.sh --self-test show that the check finds them: a small
#                                       file built with -ffp-contract=fast must
#                                       fail it, the same file with =off pass
#
# OBJDUMP and CC may name other tools (default: Debian's aarch64 cross tools
# for Arm files, the native objdump for x86-64 ones; CC for the self-test
# may carry options, e.g. "gcc -mfma" for x86-64).
set -euo pipefail

CC=${CC:-aarch64-linux-gnu-gcc}

# Arm: scalar and vector (Advanced SIMD) fused forms, SVE's, the widening
# half-precision and bfloat16 ones. x86-64: every FMA3/FMA4 form
# (vfmadd132ps, vfnmsub231sd, vfmaddsubps, ...).
FUSED='fmadd|fmsub|fnmadd|fnmsub|fmla|fmls|fnmla|fnmls|fmad|fmsb|fnmad|fnmsb|fmlal|fmlal2|fmlsl|fmlsl2|bfmlal[bt]|bfmla'
X86_FUSED='vfn?m(add|sub)'

objdump_for() {  # the disassembler for a file's architecture
  local header
  header=$(objdump -f "$1" 2>/dev/null || true)  # whole, no early exit under pipefail
  if [ -n "${OBJDUMP:-}" ]; then
    echo "$OBJDUMP"
  elif [[ $header == *x86-64* ]]; then
    echo objdump
  else
    echo aarch64-linux-gnu-objdump
  fi
}

# Prints "file: function: instruction" for each fused instruction found.
fused_instructions() {
  "$(objdump_for "$1")" -d --no-show-raw-insn "$1" |
    awk -v file="$1" -v re="^(${FUSED})$" -v x86="^(${X86_FUSED})" '
    /^[0-9a-f]+ <.*>:$/ { fn = $2; sub(/:$/, "", fn) }
    /^[[:space:]]*[0-9a-f]+:/ {
      line = $0
      sub(/^[[:space:]]*[0-9a-f]+:[[:space:]]*/, "", line)
      split(line, f, /[[:space:]]+/)
      if (f[1] ~ re || f[1] ~ x86) { print file ": " fn ": " line; n++ }
    }
    END { exit n > 0 ? 1 : 0 }'
}

check_files() {
  local status=0 file
  for file in "$@"; do
    if [ ! -f "$file" ]; then
      echo "check-no-fma: no such file: $file" >&2
      return 2
    fi
    if fused_instructions "$file"; then
      echo "check-no-fma: $file: no fused multiply-add"
    else
      echo "check-no-fma: $file: FUSED MULTIPLY-ADD FOUND (listed above)" >&2
      status=1
    fi
  done
  return $status
}

self_test() {
  local dir
  dir=$(mktemp -d)
  trap 'rm -rf "$dir"' RETURN
  cat >"$dir/probe.c" <<'SRC'
float scalar(float a, float b, float c) { return a * b + c; }
void vector(float *restrict y, const float *restrict x, float a, int n) {
    for (int i = 0; i < n; ++i) y[i] = y[i] + a * x[i];
}
SRC
  local cc
  read -r -a cc <<<"$CC"  # CC may carry options, e.g. "clang --target=aarch64-linux-gnu"
  "${cc[@]}" -O3 -ffp-contract=fast -c "$dir/probe.c" -o "$dir/fused.o"
  "${cc[@]}" -O3 -ffp-contract=off -c "$dir/probe.c" -o "$dir/plain.o"
  if fused_instructions "$dir/fused.o" >"$dir/found.txt"; then
    echo "check-no-fma self-test: FAILED: nothing found in code built with -ffp-contract=fast" >&2
    return 1
  fi
  # A scalar and a vector fused form: fmadd and fmla on Arm, vfmadd...ss
  # and vfmadd...ps on x86-64.
  if ! grep -qE ': (fmadd|vfmadd[0-9]*ss)[[:space:]]' "$dir/found.txt" ||
    ! grep -qE ': (fmla|vfmadd[0-9]*ps)[[:space:]]' "$dir/found.txt"; then
    echo "check-no-fma self-test: FAILED: expected a scalar and a vector fused form in:" >&2
    cat "$dir/found.txt" >&2
    return 1
  fi
  if ! fused_instructions "$dir/plain.o" >/dev/null; then
    echo "check-no-fma self-test: FAILED: fused code reported for -ffp-contract=off" >&2
    return 1
  fi
  echo "check-no-fma self-test: passed (-ffp-contract=fast gives: $(awk '{print $3}' "$dir/found.txt" | sort -u | tr '\n' ' '); =off gives none)"
}

if [ "${1:-}" = "--self-test" ]; then
  self_test
elif [ $# -gt 0 ]; then
  check_files "$@"
else
  sed -n '2,13p' "$0" >&2
  exit 2
fi
