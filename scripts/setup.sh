#!/usr/bin/env bash
# Installs everything the project builds and tests with (Debian packages).
# Safe to run repeatedly: packages already present are skipped.
set -euo pipefail

packages=(
  build-essential cmake git python3            # toolchain
  googletest libgtest-dev libgmock-dev         # unit tests
  libbenchmark-dev libfftw3-dev libkissfft-dev # benchmarks, reference FFTs
  libspeexdsp-dev libwebrtc-audio-processing-dev # benchmark peers
  libsndfile1-dev libsoxr-dev nlohmann-json3-dev  # the vorl tool
  libavformat-dev libavcodec-dev libswresample-dev libavutil-dev ffmpeg  # video files
  libespeak-ng-dev espeak-ng-data              # speech in the test scenes
  help2man                                     # the tool's man page
  clang libclang-rt-14-dev llvm                # fuzzers and sanitizers
  g++-aarch64-linux-gnu binutils-aarch64-linux-gnu qemu-user  # 64-bit Arm
  lv2-dev lilv-utils ffmpeg pybind11-dev python3-dev python3-numpy python3-matplotlib python3-pytest  # bridges
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -qq
  $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
