#!/usr/bin/env bash
# One-run comparison of `ferrotip declip` with ffmpeg's adeclip (defaults, one
# thread) on seeded excerpts of real music (lmms-common, 44.1 kHz) and speech
# (ktuberling-data fr/it/es/nl, 8 kHz), hard clipped to input SDRs of 1 to 20 dB.
# Prints the improvement in SDR (dB) and the wall time of each, and the real-time
# factor of ferrotip at 7 dB. adeclip's cost grows with the cube of the clipped
# samples per window, so the heavy clipping levels use shorter excerpts. Not run by CI.
#
#   scripts/bench-declip.sh [BUILD_DIR]   (default: build-release; needs the ferrotip
#                                          and declip_material targets)
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${1:-$root/build-release}
ferrotip=$build/cli/ferrotip
material=$build/bench/declip_material
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

command -v ffmpeg > /dev/null || { echo "needs ffmpeg (scripts/install-deps.sh)" >&2; exit 1; }
for program in "$ferrotip" "$material"; do
  [ -x "$program" ] || { echo "no $program: build the ferrotip and declip_material targets first" >&2; exit 1; }
done

levels=(1 3 5 7 10 15 20)
seconds_at() { case $1 in 1|3) echo 2 ;; 5|7) echo 4 ;; *) echo 8 ;; esac; }
now() { date +%s.%N; }

printf '%-7s %-9s %5s | %10s %10s | %9s %9s | %7s\n' material input_dB secs \
  "ours_dSDR" "ffm_dSDR" "ours_s" "ffm_s" "speedup"
for kind in music speech; do
  for sdr in "${levels[@]}"; do
    dir=$work/$kind-$sdr
    mkdir -p "$dir"
    secs=$(seconds_at "$sdr")
    "$material" make "$kind" "$secs" "$sdr" "$dir"
    start=$(now)
    "$ferrotip" declip -q "$dir/clipped.wav" "$dir/ours.wav" > "$dir/ours.log"
    ours=$(echo "$(now) - $start" | bc -l)
    start=$(now)
    ffmpeg -v error -y -threads 1 -filter_threads 1 -i "$dir/clipped.wav" -af adeclip -c:a pcm_f32le "$dir/ffmpeg.wav"
    theirs=$(echo "$(now) - $start" | bc -l)
    before=$("$material" sdr "$dir/clean.wav" "$dir/clipped.wav")
    after_ours=$("$material" sdr "$dir/clean.wav" "$dir/ours.wav")
    after_theirs=$("$material" sdr "$dir/clean.wav" "$dir/ffmpeg.wav")
    printf '%-7s %-9s %5s | %10.2f %10.2f | %9.2f %9.2f | %6.1fx\n' "$kind" "$sdr" "$secs" \
      "$(echo "$after_ours - $before" | bc -l)" "$(echo "$after_theirs - $before" | bc -l)" \
      "$ours" "$theirs" "$(echo "$theirs / $ours" | bc -l)"
    if [ "$sdr" = 7 ]; then
      echo "$kind at 7 dB, ferrotip: $(grep -o '[0-9.]*x real time' "$dir/ours.log")" >> "$work/realtime"
    fi
  done
done
cat "$work/realtime"
