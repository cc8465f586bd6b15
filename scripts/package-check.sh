#!/usr/bin/env bash
# Packaging stage: installs a build into a temporary prefix and checks it from
# outside, as a host developer and a user meet it, then does the same with the
# Debian package that cpack makes from the same build.
#
#   scripts/package-check.sh [BUILD_DIR]
#
# BUILD_DIR is a configured Release build (default build-release; configured
# here without tests and benchmarks if it has none). Checked: the installed
# files, the library's SONAME, version links and its three exports, flags that
# must not reach a consumer, `ferrotip --version` and `methods`, the man page
# (renders, lists every subcommand and option), examples/host built with
# find_package and with pkg-config and run, and `cpack -G DEB` unpacked with
# dpkg -x into a temporary root: its command, man page and library with the
# example host. Nothing is installed on the system; everything lives in one
# mktemp directory that is removed at the end. The last line is
# `package: N passed, M failed`; the exit status is 0 only when nothing failed.
set -u -o pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$(realpath -m "${1:-$root/build-release}")
jobs=${JOBS:-2}

passed=0
failed=0
started=$SECONDS
pass() { echo "PASS $*"; passed=$((passed + 1)); }
fail() { echo "FAIL $*"; failed=$((failed + 1)); }
work=$(mktemp -d)
finish() {
  rm -rf "$work"
  echo "package stage took $((SECONDS - started)) s"
  echo "package: $passed passed, $failed failed"
  (( failed == 0 ))
  exit
}
trap finish EXIT
# check <description> <command...>: one PASS or FAIL line, the output on failure.
check() {
  local what=$1; shift
  if "$@" >"$work/out" 2>&1; then pass "$what"; else fail "$what"; sed 's/^/  /' "$work/out" | tail -20; fi
}

echo "== build ($build)"
if [[ ! -f $build/CMakeCache.txt ]]; then
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DFERROTIP_BUILD_TESTS=OFF -DFERROTIP_BUILD_BENCHMARKS=OFF >"$work/configure.log" 2>&1 ||
    { cat "$work/configure.log"; fail "configure"; exit; }
fi
if ! cmake --build "$build" --target ferrotip ferrotip_module ferrotip_man -j "$jobs" \
     >"$work/build.log" 2>&1; then
  tail -40 "$work/build.log"; fail "build"; exit
fi
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
major=${version%%.*}

# ---------------------------------------------------------------------------
echo "== cmake --install into a temporary prefix"
prefix=$work/prefix
if ! cmake --install "$build" --prefix "$prefix" >"$work/install.log" 2>&1; then
  cat "$work/install.log"; fail "cmake --install"; exit
fi
files_present() {
  local missing=0 file
  for file in include/ferrotip/ferrotip.h "lib/libferrotip.so.$version" bin/ferrotip \
              share/man/man1/ferrotip.1 lib/cmake/ferrotip/ferrotipConfig.cmake \
              lib/cmake/ferrotip/ferrotipConfigVersion.cmake lib/cmake/ferrotip/ferrotipTargets.cmake \
              lib/pkgconfig/ferrotip.pc; do
    [[ -f $1/$file ]] || { echo "missing $file"; missing=1; }
  done
  [[ $(readlink "$1/lib/libferrotip.so") == libferrotip.so.$major ]] || { echo "libferrotip.so link"; missing=1; }
  [[ $(readlink "$1/lib/libferrotip.so.$major") == libferrotip.so.$version ]] ||
    { echo "libferrotip.so.$major link"; missing=1; }
  return $missing
}
check "installed files: header, library and its links, command, man page, CMake package, pkg-config" \
  files_present "$prefix"
soname_is() {  # library expected-soname
  local soname
  soname=$(readelf -d "$1" | sed -n 's/.*Library soname: \[\(.*\)\]/\1/p')
  echo "SONAME '$soname'"
  [[ $soname == "$2" ]]
}
exports_are_three() {
  local exports
  exports=$(nm -D --defined-only "$1" | awk '{ print $NF }' | sort | xargs)
  echo "exports: $exports"
  [[ $exports == "getMethodDescription init process" ]]
}
library_ok() { soname_is "$1" "libferrotip.so.$major" && exports_are_three "$1"; }
check "installed library: SONAME libferrotip.so.$major, exports exactly getMethodDescription, init, process" \
  library_ok "$prefix/lib/libferrotip.so.$version"
# A consumer gets the include directory and the library, never this project's
# compile or link flags (which would change the consumer's arithmetic).
no_flags_leak() {
  ! grep -E 'INTERFACE_(COMPILE_OPTIONS|COMPILE_DEFINITIONS|LINK_OPTIONS)' \
      "$prefix/lib/cmake/ferrotip/ferrotipTargets.cmake" &&
  ! grep -E '^(Cflags|Libs):.*(-f|-D|-W)' "$prefix/lib/pkgconfig/ferrotip.pc"
}
check "the CMake package and ferrotip.pc pass no compile or link flags on" no_flags_leak

check "ferrotip --version says ferrotip $version" \
  bash -c '[[ $("$1" --version) == "ferrotip $2" ]]' _ "$prefix/bin/ferrotip" "$version"
check "ferrotip methods" "$prefix/bin/ferrotip" methods
check "man -l renders the installed page" \
  bash -c 'MANWIDTH=100 man -l "$1" | grep -q "ferrotip methods"' _ "$prefix/share/man/man1/ferrotip.1"
check "the installed man page shows every subcommand and option" \
  bash "$root/cli/man/manpage.sh" check "$prefix/bin/ferrotip" "$prefix/share/man/man1/ferrotip.1"

# ---------------------------------------------------------------------------
echo "== examples/host against the installed prefix"
host_cmake() {  # prefix build-dir
  cmake -S "$root/examples/host" -B "$2" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_PREFIX_PATH="$1" -DCMAKE_C_FLAGS="-Wall -Wextra -Wpedantic -Werror" &&
  cmake --build "$2" && "$2/ferrotip_example_host"
}
check "examples/host built with find_package(ferrotip) runs" host_cmake "$prefix" "$work/host-cmake"
host_pkgconfig() {
  local flags
  flags=$(PKG_CONFIG_PATH="$prefix/lib/pkgconfig" pkg-config --cflags --libs ferrotip) &&
  echo "pkg-config: $flags" &&
  # shellcheck disable=SC2086
  cc -std=c11 -O2 -Wall -Wextra -Wpedantic -Werror "$root/examples/host/host.c" $flags -lm \
    -o "$work/host-pkgconfig" &&
  LD_LIBRARY_PATH="$prefix/lib" "$work/host-pkgconfig"
}
check "examples/host built with pkg-config --cflags --libs ferrotip runs" host_pkgconfig

# ---------------------------------------------------------------------------
echo "== Debian package"
if ! (cd "$work" && cpack -G DEB --config "$build/CPackConfig.cmake" -B "$work/deb") \
     >"$work/cpack.log" 2>&1; then
  tail -30 "$work/cpack.log"; fail "cpack -G DEB"; exit
fi
deb=$(ls "$work"/deb/*.deb 2>/dev/null | head -1)
if [[ -z $deb ]]; then fail "cpack -G DEB made no package"; exit; fi
pass "cpack -G DEB: $(basename "$deb") ($(dpkg-deb -f "$deb" Depends))"
pkgroot=$work/root
dpkg -x "$deb" "$pkgroot"
check "package holds the installed files under /usr" files_present "$pkgroot/usr"
check "packaged library: SONAME libferrotip.so.$major and exactly three exports" \
  library_ok "$pkgroot/usr/lib/libferrotip.so.$version"
check "ferrotip methods from the package" "$pkgroot/usr/bin/ferrotip" methods
check "ferrotip --version from the package" \
  bash -c '[[ $("$1" --version) == "ferrotip $2" ]]' _ "$pkgroot/usr/bin/ferrotip" "$version"
check "man -l renders the packaged page" \
  bash -c 'MANWIDTH=100 man -l "$1" | grep -q "ferrotip repair"' _ "$pkgroot/usr/share/man/man1/ferrotip.1"
check "examples/host built against the package with find_package runs" \
  host_cmake "$pkgroot/usr" "$work/host-deb"
check "the pkg-config build of examples/host runs on the packaged library" \
  env LD_LIBRARY_PATH="$pkgroot/usr/lib" "$work/host-pkgconfig"
