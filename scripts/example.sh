#!/usr/bin/env bash
# The newcomer's first run: installs what is missing, builds the ferrotip command,
# damages a generated recording, repairs it with every method and shows how close
# each came to the original; then repairs a damaged file on disk, by the regions
# given and by the dropouts that `scan` finds.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$root/build
jobs=${JOBS:-$(nproc)}

"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DFERROTIP_BUILD_TESTS=OFF \
  -DFERROTIP_BUILD_BENCHMARKS=OFF > /dev/null
cmake --build "$build" --target ferrotip ferrotip_module -j "$jobs"

ferrotip=$build/cli/ferrotip
echo
"$ferrotip" demo --write "$build/example-damaged.wav"
echo
"$ferrotip" repair "$build/example-damaged.wav" "$build/example-click-repaired.wav" \
  --start 1s --length 120 --method "normal clicks"
"$ferrotip" repair "$build/example-click-repaired.wav" "$build/example-repaired.wav" \
  --start 3s --length 2000 --method 4
echo "listen: $build/example-damaged.wav -> $build/example-repaired.wav"
echo
# The same dropout found and filled without telling where it is.
"$ferrotip" scan "$build/example-damaged.wav" --report "$build/example-dropouts.csv"
"$ferrotip" repair "$build/example-damaged.wav" "$build/example-filled.wav" --regions "$build/example-dropouts.csv"
