#!/usr/bin/env bash
# The dropout filler's comparison in one run: mean gap SNR (dB, both channels, what a
# method changes outside the gap counting as error) over 8 gaps from each of four seeds
# (32 per length; one seed's 8 move a row by a decibel) of music (hedgewars-data) and
# speech (ktuberling-data, English and German), for zero fill, the module's methods
# 0-6, the two plain references (at 100 and 249 ms on one gap per seed, as they are
# slow), inpaint and auto, every gap with 6.5 s on each side; then gaps drawn the same
# way with 20.5 s on each side (music: 50 s of each piece), as far as the filler's
# repeat search reaches (inpaint and the references, 5-50 ms); then the speed of the filler against the plain
# gap-wise reference. Takes two to three hours on one core, most of it in the
# references. Not run by CI.
#
#   scripts/bench-inpaint.sh [BUILD_DIR] [extra inpaint_table options]   (default: build-release)
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${1:-$root/build-release}
shift || true
table=$build/tests/inpaint/inpaint_table
bench=$build/bench/inpaint_bench
for program in "$table" "$bench"; do
  [ -x "$program" ] || { echo "no $program: build the inpaint_table and inpaint_bench targets first" >&2; exit 1; }
done
[ -d /usr/share/games/hedgewars/Data/Music ] && [ -d /usr/share/ktuberling/sounds ] ||
  { echo "needs hedgewars-data and ktuberling-data (scripts/install-deps.sh)" >&2; exit 1; }

echo "## Mean gap SNR, dB (m0..m6: the module's methods)"
"$table" --seeds 19,23,31,47 --gaps 8 --long-gaps 1 "$@"
echo
echo "## Mean gap SNR, dB, with 20.5 s on each side of a gap (music: 50 s of each piece)"
"$table" --seeds 19,23,31,47 --gaps 8 --lengths 5,10,20,50 --fillers inpaint,gapwise,classic \
  --context 20.5 --music-seconds 50 "$@"
echo
echo "## Speed, one core (CPU time per stereo 44.1 kHz gap)"
taskset -c 0 "$bench" --benchmark_filter='BM_Inpaint' 2>/dev/null | grep BM_
