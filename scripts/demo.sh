#!/usr/bin/env bash
# The main command: sets the machine up, builds the vorl tool, generates the
# demo recording (zoom drives in both directions and a stretch of wind over a
# plucked melody), removes the drive noise with the built-in tuning table and
# prints how much noise went and how much the rest of the recording changed.
# Everything it writes goes to build/ (the demo files to build/demo/).
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/setup.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j"$(nproc)" --target vorl_tool vorl_make_demo

vorl=build/tools/vorl/vorl
demo=build/demo
mkdir -p "$demo"
build/tools/demo/vorl_make_demo "$demo"
"$vorl" process "$demo/noisy.wav" "$demo/processed.wav" --drive "$demo/drive.txt" -y

echo
echo "Demo files in $demo/: noisy.wav (input), processed.wav (output),"
echo "clean.wav (the scene without drive and wind noise), drive.txt (drive state)."
echo
"$vorl" measure "$demo/clean.wav" "$demo/noisy.wav" "$demo/processed.wav" --drive "$demo/drive.txt"
