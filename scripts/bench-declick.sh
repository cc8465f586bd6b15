#!/usr/bin/env bash
# One-run speed comparison of `ferrotip declick` (both engines) against ffmpeg's
# adeclick filter (single thread) on the same one-minute stereo 44.1 kHz file of
# music-like audio with clicks, and the peak memory of `ferrotip declick` on a
# one-hour file. Not run by CI.
#
#   scripts/bench-declick.sh [BUILD_DIR]   (default: build-release)
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${1:-$root/build-release}
ferrotip=$build/cli/ferrotip
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

command -v ffmpeg > /dev/null || { echo "needs ffmpeg (apt-get install -y ffmpeg)" >&2; exit 1; }
[ -x /usr/bin/time ] || { echo "needs GNU time (apt-get install -y time)" >&2; exit 1; }
[ -x "$ferrotip" ] || { echo "no $ferrotip: build the ferrotip target first" >&2; exit 1; }

# make_input SECONDS FILE: partials with vibrato, a little hiss and about ten
# clicks a second per channel, as 16-bit PCM.
make_input() {
  python3 - "$1" "$2" <<'PY'
import math, random, struct, sys, wave
seconds, path = int(sys.argv[1]), sys.argv[2]
rate = 44100
rng = random.Random(2024)
period = rate * 10                      # synthesise 10 s and repeat it
base = [[0.0] * period for _ in range(2)]
for c in range(2):
    for t in range(period):
        time = t / rate
        vib = 1.0 + 0.003 * math.sin(2 * math.pi * 5 * time)
        env = 0.6 + 0.4 * math.sin(2 * math.pi * 0.7 * time + c)
        v = sum(0.25 / h * math.sin(2 * math.pi * 196 * h * vib * time + h + 0.5 * c) for h in range(1, 7))
        base[c][t] = 0.5 * env * v + rng.gauss(0.0, 0.002)
    at = 3000
    while at + 100 < period:
        n = int(math.exp(rng.uniform(0.0, math.log(41.0))))
        amp, sign = rng.uniform(0.05, 0.4), rng.choice((-1.0, 1.0))
        for i in range(n):
            shape = sign if i == 0 else 0.6 * rng.uniform(-1, 1) + 0.4 * sign
            base[c][at + i] += amp * math.exp(-3.0 * i / n) * shape
        at += 2000 + rng.randrange(4000)
block = b"".join(struct.pack("<hh", *(max(-32768, min(32767, int(round(base[c][t] * 32767)))) for c in range(2)))
                 for t in range(period))
with wave.open(path, "wb") as w:
    w.setnchannels(2); w.setsampwidth(2); w.setframerate(rate)
    for _ in range(seconds // 10):
        w.writeframes(block)
PY
}

# seconds_of CMD...: wall-clock seconds of one run.
seconds_of() {
  local start end
  start=$(date +%s.%N); "$@" > /dev/null 2>&1; end=$(date +%s.%N)
  echo "$end - $start" | bc -l
}

make_input 60 "$work/minute.wav"
standard=$(seconds_of "$ferrotip" declick -q "$work/minute.wav" "$work/standard.wav")
prediction=$(seconds_of "$ferrotip" declick -q --engine prediction "$work/minute.wav" "$work/prediction.wav")
adeclick=$(seconds_of ffmpeg -nostdin -y -threads 1 -filter_threads 1 -i "$work/minute.wav" \
  -af adeclick "$work/adeclick.wav")
printf 'one minute of stereo 44.1 kHz audio, one run each (wall clock):\n'
printf '  ferrotip declick --engine standard    %7.2f s  %6.1fx real time  %5.1fx adeclick\n' \
  "$standard" "$(echo "60 / $standard" | bc -l)" "$(echo "$adeclick / $standard" | bc -l)"
printf '  ferrotip declick --engine prediction  %7.2f s  %6.1fx real time  %5.1fx adeclick\n' \
  "$prediction" "$(echo "60 / $prediction" | bc -l)" "$(echo "$adeclick / $prediction" | bc -l)"
printf '  ffmpeg adeclick (1 thread)            %7.2f s  %6.1fx real time\n' \
  "$adeclick" "$(echo "60 / $adeclick" | bc -l)"

make_input 3600 "$work/hour.wav"
rm -f "$work/minute.wav" "$work"/standard.wav "$work"/prediction.wav "$work"/adeclick.wav
/usr/bin/time -v "$ferrotip" declick -q "$work/hour.wav" "$work/hour-out.wav" 2> "$work/time.txt" > /dev/null
peak=$(awk -F: '/Maximum resident set size/ {gsub(/ /, "", $2); print $2}' "$work/time.txt")
printf 'one hour of stereo audio: peak memory of ferrotip declick %s kB\n' "$peak"
