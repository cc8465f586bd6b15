#!/usr/bin/env bash
# `ferrotip declick` beside ffmpeg's adeclick, everything measured in one run:
#   quality  SNR (dB, against the clean excerpt) of each preset and of adeclick (its
#            defaults and the best of a small grid of settings) on real music and speech
#            with seeded clicks, seeded fine crackle, and nothing to remove;
#   speed    a one-minute stereo 44.1 kHz file through the command line: ours at the
#            default preset with one and two threads against adeclick single-threaded;
#   memory   peak resident memory of ours on a one-hour stereo file (GNU time).
# Not run by CI. Needs ffmpeg, GNU time, the recordings of scripts/install-deps.sh and
# a build of the ferrotip and make_declick_material targets.
#
#   scripts/bench-declick.sh [BUILD_DIR] [quality|speed|memory|all]   (default: build-release all)
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${1:-$root/build-release}
part=${2:-all}
ferrotip=$build/cli/ferrotip
material=$build/tests/declick/make_declick_material
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

command -v ffmpeg > /dev/null || { echo "needs ffmpeg (apt-get install -y ffmpeg)" >&2; exit 1; }
[ -x /usr/bin/time ] || { echo "needs GNU time (apt-get install -y time)" >&2; exit 1; }
for tool in "$ferrotip" "$material"; do
  [ -x "$tool" ] || { echo "no $tool: build the ferrotip and make_declick_material targets first" >&2; exit 1; }
done

music=/usr/share/games/etr/music/race1-jt.ogg
longer_music=/usr/share/games/etr/music/freezingpoint.ogg
speech=$(ls /usr/share/sounds/alsa/{Front,Rear,Side}_*.wav | paste -sd, -)
seed=1
presets=(auto gentle clicks crackle)
adeclick_grid=("t=1" "t=2:a=8" "t=3" "t=3:a=8" "t=5" "w=20:t=2" "w=20:t=3")

single_threaded_ffmpeg=(ffmpeg -nostdin -v error -y -threads 1 -filter_threads 1)
adeclick() {  # IN OUT [OPTIONS]
  "${single_threaded_ffmpeg[@]}" -i "$1" -af "adeclick${3:+=$3}" -c:a pcm_f32le "$2"
}

snr() { "$material" snr "$1" "$2"; }

quality() {
  printf '%-26s %8s' material damaged
  for preset in "${presets[@]}"; do printf ' %8s' "$preset"; done
  printf ' %9s %9s\n' adeclick 'ad. best'
  for source in music speech; do
    if [ $source = music ]; then from=$music; start=20; seconds=20; else from=$speech; start=0; seconds=12; fi
    "$material" damage none $seed "$from" $start $seconds "$work/clean.wav"
    for damage in clicks crackle none; do
      "$material" damage $damage $seed "$from" $start $seconds "$work/in.wav"
      printf '%-26s %8s' "$source + $damage" "$(snr "$work/clean.wav" "$work/in.wav")"
      for preset in "${presets[@]}"; do
        "$ferrotip" declick -q --preset "$preset" "$work/in.wav" "$work/out.wav" > /dev/null
        printf ' %8s' "$(snr "$work/clean.wav" "$work/out.wav")"
      done
      adeclick "$work/in.wav" "$work/out.wav"
      defaults=$(snr "$work/clean.wav" "$work/out.wav")
      best=$defaults
      for setting in "${adeclick_grid[@]}"; do
        adeclick "$work/in.wav" "$work/out.wav" "$setting"
        value=$(snr "$work/clean.wav" "$work/out.wav")
        best=$(echo "if ($value > $best) $value else $best" | bc -l)
      done
      printf ' %9s %9.1f\n' "$defaults" "$best"
    done
  done
  printf 'SNR in dB against the clean excerpt (music: 20 s of %s; speech: the ALSA announcements);\n' \
    "$(basename "$music")"
  printf 'adeclick best: the highest of its defaults and %s\n' "${adeclick_grid[*]}"
}

# timed CMD...: "wall cpu" seconds of one run (cpu: user + system, GNU time), which
# a machine shared with other work disturbs less than the wall clock.
timed() {
  /usr/bin/time -f '%e %U %S' -o "$work/timed.txt" "$@" > /dev/null 2>&1
  awk '{printf "%s %.2f\n", $1, $2 + $3}' "$work/timed.txt"
}

make_minute() {
  [ -f "$work/minute.wav" ] || "$material" damage clicks $seed "$music,$longer_music" 0 60 "$work/minute.wav"
}

speed() {
  make_minute
  read -r one one_cpu < <(timed "$ferrotip" declick -q --jobs 1 "$work/minute.wav" "$work/one.wav")
  read -r two two_cpu < <(timed "$ferrotip" declick -q --jobs 2 "$work/minute.wav" "$work/two.wav")
  read -r theirs theirs_cpu < <(timed "${single_threaded_ffmpeg[@]}" -i "$work/minute.wav" -af adeclick \
    -c:a pcm_f32le "$work/adeclick.wav")
  printf 'one minute of stereo 44.1 kHz music with clicks, one run each (wall clock; cpu = user + system):\n'
  printf '  ferrotip declick (auto), 1 thread   %6.2f s  %6.1fx real time  %5.1fx adeclick  (cpu %5.2f s, %5.1fx)\n' \
    "$one" "$(echo "60 / $one" | bc -l)" "$(echo "$theirs / $one" | bc -l)" "$one_cpu" "$(echo "$theirs_cpu / $one_cpu" | bc -l)"
  printf '  ferrotip declick (auto), 2 threads  %6.2f s  %6.1fx real time  %5.1fx adeclick  (cpu %5.2f s)\n' \
    "$two" "$(echo "60 / $two" | bc -l)" "$(echo "$theirs / $two" | bc -l)" "$two_cpu"
  printf '  ffmpeg adeclick (1 thread)          %6.2f s  %6.1fx real time                   (cpu %5.2f s)\n' \
    "$theirs" "$(echo "60 / $theirs" | bc -l)" "$theirs_cpu"
  rm -f "$work/one.wav" "$work/two.wav" "$work/adeclick.wav"
}

memory() {
  make_minute
  ffmpeg -nostdin -v error -y -stream_loop 59 -i "$work/minute.wav" -c:a pcm_s16le "$work/hour.wav"
  for jobs in 1 2; do
    /usr/bin/time -v "$ferrotip" declick -q --jobs $jobs "$work/hour.wav" "$work/hour-out.wav" \
      2> "$work/time.txt" > /dev/null
    peak=$(awk -F: '/Maximum resident set size/ {gsub(/ /, "", $2); print $2}' "$work/time.txt")
    printf 'one hour of stereo audio, %d thread(s): peak memory of ferrotip declick %s kB\n' $jobs "$peak"
  done
}

case $part in
  quality) quality ;;
  speed) speed ;;
  memory) memory ;;
  all) quality; speed; memory ;;
  *) echo "unknown part '$part' (quality, speed, memory or all)" >&2; exit 1 ;;
esac
