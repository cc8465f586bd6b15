#!/usr/bin/env bash
# One-run comparison of `ferrotip declip` with ffmpeg's adeclip (defaults, one
# thread) on seeded excerpts of real music (lmms-common, 44.1 kHz), speech
# (ktuberling-data fr/it/es/nl words, 8 kHz), speech44 (its French words at
# 44.1 kHz, without the flat-topped ones), voices44 (its el/gl/sl/uk/wa words, 44.1 kHz,
# likewise) and dialogue (fillets-ng-data-nl, acted
# Dutch lines, 22.05 kHz), hard clipped to input SDRs of 1 to 20 dB.
# Prints the improvement in SDR (dB) and the processor time (user + system, so a
# busy machine does not skew the ratio) of each, their ratio, and the ratio of
# adeclip's time to ferrotip's wall-clock time on all the machine's threads (ferrotip
# solves its frames in parallel, with the same bits; adeclip runs on one), the
# processor-time ratio for `ferrotip declip --fast` (long frames alone), and
# ferrotip's real-time factor at 7 dB. adeclip's cost grows with the cube of the clipped
# samples per window (about a minute per second of music at 1 dB), so the heavy
# clipping levels of music use excerpts of a few seconds (10 s at 10 dB), those of
# speech44 and voices44 2-10 s (1-7 dB), and those of speech and dialogue (8 and 22.05 kHz, far
# cheaper) 10 s; the other levels use 30 s, so that the processor time measures the
# processing rather than the start of either program. Not run by CI.
#
#   scripts/bench-declip.sh [BUILD_DIR [KIND...]]
#       BUILD_DIR: default build-release, with the ferrotip and declip_material targets;
#       KIND: music, speech, speech44, voices44, dialogue (default: all five).
#   SEED=N picks other excerpts (default 20, the material the figures in the README
#   come from): held-out material for judging a change that was tuned on seed 20.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${1:-$root/build-release}
kinds=("${@:2}")
seed=${SEED:-20}
[[ $seed =~ ^[0-9]+$ ]] || { echo "SEED must be a whole number, not '$seed'" >&2; exit 1; }
[ ${#kinds[@]} -gt 0 ] || kinds=(music speech speech44 voices44 dialogue)
ferrotip=$build/cli/ferrotip
material=$build/bench/declip_material
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

command -v ffmpeg > /dev/null && command -v bc > /dev/null || { echo "needs ffmpeg and bc (apt-get install -y ffmpeg bc)" >&2; exit 1; }
for program in "$ferrotip" "$material"; do
  [ -x "$program" ] || { echo "no $program: build the ferrotip and declip_material targets first" >&2; exit 1; }
done

levels=(1 3 5 7 10 15 20)
# seconds_at KIND SDR: the excerpt's length.
seconds_at() {
  case $1-$2 in
    music-1) echo 1 ;; music-3) echo 2 ;; music-5|music-7) echo 3 ;; music-10|speech-1|speech-3|dialogue-1|dialogue-3) echo 10 ;;
    speech44-1|voices44-1) echo 2 ;; speech44-3|voices44-3) echo 3 ;; speech44-5|voices44-5) echo 5 ;;
    speech44-7|voices44-7) echo 10 ;; *) echo 30 ;;
  esac
}
# cpu_seconds LOG COMMAND...: runs COMMAND, stdout to LOG, prints its user + system
# time and its wall-clock time.
cpu_seconds() {
  local log=$1 TIMEFORMAT='%U %S %R' times
  shift
  times=$( { time "$@" > "$log"; } 2>&1 )
  echo "$times" | awk '{ printf "%.3f %.3f", $1 + $2, $3 }'
}

printf '%-8s %-9s %5s | %10s %10s | %9s %9s | %7s | %9s %8s | %8s %7s\n' material input_dB secs \
  "ours_dSDR" "ffm_dSDR" "ours_cpu" "ffm_cpu" "speedup" "ours_wall" "wall_x" "fast_cpu" "fast_x"
for kind in "${kinds[@]}"; do
  for sdr in "${levels[@]}"; do
    dir=$work/$kind-$sdr
    mkdir -p "$dir"
    secs=$(seconds_at "$kind" "$sdr")
    "$material" make "$kind" "$secs" "$sdr" "$dir" "$seed"
    timing=$(cpu_seconds "$dir/ours.log" "$ferrotip" declip -q "$dir/clipped.wav" "$dir/ours.wav")
    read -r ours wall <<< "$timing"
    timing=$(cpu_seconds "$dir/fast.log" "$ferrotip" declip -q --fast "$dir/clipped.wav" "$dir/fast.wav")
    read -r fast _ <<< "$timing"
    timing=$(cpu_seconds /dev/null ffmpeg -nostdin -v error -y -threads 1 -filter_threads 1 \
      -i "$dir/clipped.wav" -af adeclip -c:a pcm_f32le "$dir/ffmpeg.wav")
    read -r theirs _ <<< "$timing"
    before=$("$material" sdr "$dir/clean.wav" "$dir/clipped.wav")
    after_ours=$("$material" sdr "$dir/clean.wav" "$dir/ours.wav")
    after_theirs=$("$material" sdr "$dir/clean.wav" "$dir/ffmpeg.wav")
    printf '%-8s %-9s %5s | %10.2f %10.2f | %9.2f %9.2f | %6.1fx | %9.2f %7.1fx | %8.2f %6.1fx\n' "$kind" "$sdr" \
      "$secs" "$(echo "$after_ours - $before" | bc -l)" "$(echo "$after_theirs - $before" | bc -l)" \
      "$ours" "$theirs" "$(echo "$theirs / $ours" | bc -l)" "$wall" "$(echo "$theirs / $wall" | bc -l)" \
      "$fast" "$(echo "$theirs / $fast" | bc -l)"
    if [ "$sdr" = 7 ]; then
      echo "$kind at 7 dB: ferrotip restores $(echo "$secs / $ours" | bc -l | xargs printf '%.1f')x real time (processor time)" >> "$work/realtime"
    fi
  done
done
cat "$work/realtime"
