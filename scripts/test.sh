#!/usr/bin/env bash
# Installs what is missing, builds everything and runs every test: a Release
# build, the same suite under AddressSanitizer + UndefinedBehaviorSanitizer, and
# the Windows stage (cross-built DLL checked under Wine against the Linux module).
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=${JOBS:-$(nproc)}

"$root/scripts/install-deps.sh"

# Each stage's heading says how long the run has taken so far: CI allows 30 minutes.
stage() { echo "== $1 (at $((SECONDS / 60)) min $((SECONDS % 60)) s)"; }

ctest_extra=()  # more ctest options for the next run_suite
run_suite() {  # run_suite <build dir> <cmake options...>
  local build=$1; shift
  cmake -S "$root" -B "$build" -G Ninja "$@" > /dev/null
  cmake --build "$build" -j "$jobs"
  ctest --test-dir "$build" --output-on-failure -j "$jobs" --timeout 600 "${ctest_extra[@]}"
}

stage "release"
run_suite "$root/build-release" -DCMAKE_BUILD_TYPE=Release -DFERROTIP_BUILD_PYTHON=ON

stage "native target (-march=native): the same bits, and no fused multiply-add in any object"
run_suite "$root/build-native" -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS=-march=native \
  -DFERROTIP_BUILD_BENCHMARKS=OFF
"$root/scripts/check-unfused.sh" "$root/build-native"

stage "package (install, CMake and pkg-config consumers, Debian package)"
"$root/scripts/package-check.sh" "$root/build-release"

stage "sanitizers (AddressSanitizer + UndefinedBehaviorSanitizer)"
# -O1 with line tables only: the instrumented build compiles in about half the time
# of -O2 -g, and its reports still name file and line.
sanitize_flags=("-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 -g1 -DNDEBUG" "-DCMAKE_C_FLAGS_RELWITHDEBINFO=-O1 -g1 -DNDEBUG")
# The quality suites' figures are asserted by both stages above; here they would only
# run the paths the other tests already drive, on minutes of audio.
ctest_extra=(--exclude-regex 'Quality')
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  run_suite "$root/build-sanitize" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DFERROTIP_SANITIZE=ON \
  -DFERROTIP_BUILD_BENCHMARKS=OFF "${sanitize_flags[@]}"

stage "windows"
"$root/scripts/windows-check.sh" --strict --linux-build "$root/build-release"
stage "done"
