#!/usr/bin/env bash
# Windows stage: cross-builds Ferrotip_x64.dll with MinGW-w64, checks its export
# and import tables, runs the host test program against it under Wine and
# against libferrotip.so on Linux, and compares the two programs' digests.
#
#   scripts/windows-check.sh [--linux-build DIR] [--win-build DIR] [--strict] [--no-install]
#
#   --linux-build DIR  take libferrotip.so from this CMake build directory (built
#                      here with `--target ferrotip_module`; configured here with
#                      tests, CLI and benchmarks off if DIR has no CMakeCache.txt).
#                      A sanitizer build can't be loaded by a plain host program,
#                      so one is passed over for the default. Default: build-host-linux.
#   --win-build DIR    the cross build directory. Default: build-win.
#   --strict           fail on any difference between the Linux and the Windows
#                      repairs, also one that is explained by the C library's cosine.
#   --no-install       never call apt-get; fail when a tool is missing.
#
# Installs what it needs with apt-get when run as root (skipped when present).
# Wine runs without a display, in a private prefix under /tmp
# (FERROTIP_WINEPREFIX overrides it). JOBS sets the build parallelism (default 2).
# The last line is `windows: N passed, M failed`; the exit status is 0 only when
# nothing failed.
set -u -o pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
win_build=$root/build-win
linux_build=$root/build-host-linux
strict=0
install=1
jobs=${JOBS:-2}

while (( $# > 0 )); do
  case $1 in
    --linux-build) linux_build=$(realpath -m "${2:?--linux-build needs a directory}"); shift 2 ;;
    --win-build) win_build=$(realpath -m "${2:?--win-build needs a directory}"); shift 2 ;;
    --strict) strict=1; shift ;;
    --no-install) install=0; shift ;;
    -h|--help) sed -n '2,23p' "${BASH_SOURCE[0]}" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) echo "windows-check: unknown argument '$1'" >&2; exit 2 ;;
  esac
done

mingw_cc=x86_64-w64-mingw32-gcc-posix
objdump=x86_64-w64-mingw32-objdump
export OBJDUMP=$objdump
host_cflags=(-std=c11 -O2 -ffp-contract=off -Wall -Wextra -Wpedantic -I"$root/include")

passed=0
failed=0
stage_start=$SECONDS
pass() { echo "PASS $*"; passed=$((passed + 1)); }
fail() { echo "FAIL $*"; failed=$((failed + 1)); }
note() { echo "  $*"; }
wine_used=0
finish() {
  # Let this prefix's wineserver, started by this script, wind down before leaving.
  (( wine_used == 0 )) || timeout 60 wineserver -w
  echo "windows stage took $((SECONDS - stage_start)) s"
  echo "windows: $passed passed, $failed failed"
  (( failed == 0 ))
  exit
}
phase() { echo "== $* ($((SECONDS - stage_start)) s)"; }

# ---------------------------------------------------------------------------
phase "tools"
missing=()
command -v "$mingw_cc" >/dev/null || missing+=(g++-mingw-w64-x86-64-posix)
command -v "$objdump" >/dev/null || missing+=(binutils-mingw-w64-x86-64)
command -v wine >/dev/null || missing+=(wine)
[[ -x /usr/lib/wine/wine64 ]] || command -v wine64 >/dev/null || missing+=(wine64)
command -v cmake >/dev/null || missing+=(cmake)
command -v ninja >/dev/null || missing+=(ninja-build)
command -v cc >/dev/null || missing+=(gcc)
if (( ${#missing[@]} > 0 )); then
  if (( install == 0 )) || [[ $(id -u) != 0 ]]; then
    fail "tools: missing ${missing[*]} (install them, or run as root to let this script do it)"
    finish
  fi
  note "installing ${missing[*]}"
  apt_options=(-o DPkg::Lock::Timeout=600 -qq)
  apt_log=$(mktemp)
  if ! DEBIAN_FRONTEND=noninteractive apt-get "${apt_options[@]}" update >"$apt_log" 2>&1 ||
     ! DEBIAN_FRONTEND=noninteractive apt-get "${apt_options[@]}" install -y \
         --no-install-recommends "${missing[@]}" >>"$apt_log" 2>&1; then
    tail -20 "$apt_log"
    rm -f "$apt_log"
    fail "tools: apt-get could not install ${missing[*]}"
    finish
  fi
  rm -f "$apt_log"
fi
note "$($mingw_cc --version | head -1); $(wine --version 2>/dev/null)"

# ---------------------------------------------------------------------------
phase "cross build of Ferrotip_x64.dll"
dll=$win_build/src/Ferrotip_x64.dll
mkdir -p "$win_build"
if [[ ! -f $win_build/CMakeCache.txt ]]; then
  cmake -S "$root" -B "$win_build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64-x86_64.cmake" >"$win_build/check-configure.log" 2>&1 ||
    { cat "$win_build/check-configure.log"; fail "cross configure"; finish; }
fi
if ! cmake --build "$win_build" --target ferrotip_module -j "$jobs" >"$win_build/check-build.log" 2>&1; then
  tail -40 "$win_build/check-build.log"
  fail "cross build of Ferrotip_x64.dll"
  finish
fi
pass "cross build of Ferrotip_x64.dll"

# ---------------------------------------------------------------------------
phase "export and import tables"
if "$root/tests/host/check_exports.sh" "$dll"; then
  pass "export table: Ferrotip_x64.dll exports exactly getMethodDescription, init, process"
else
  fail "export table"
fi
if "$root/tests/host/check_imports.sh" "$dll"; then
  pass "imports: system DLLs only"
else
  fail "imports"
fi

# The checks must also say no. Small DLLs that are wrong in one way each.
fixtures=$win_build/host/fixtures
mkdir -p "$fixtures"
cat >"$fixtures/module.c" <<'EOF'
void getMethodDescription(void* record) { (void)record; }
void init(void* ignored, void* hostValue) { (void)ignored; (void)hostValue; }
int process(void) { return 0; }
int helper(void) { return 1; }
EOF
cat >"$fixtures/runtime.cpp" <<'EOF'
#include <stdexcept>
#include <string>
extern "C" int process(int n) { if (n < 0) throw std::runtime_error(std::to_string(n)); return n; }
extern "C" void getMethodDescription(void*) {}
extern "C" void init(void*, void*) {}
EOF
make_fixture() {  # name, LIBRARY line, EXPORTS lines
  printf 'LIBRARY %s\nEXPORTS\n%s\n' "$2" "$3" >"$fixtures/$1.def"
  $mingw_cc -shared -o "$fixtures/$1.dll" "$fixtures/module.c" "$fixtures/$1.def" 2>"$fixtures/$1.log"
}
declare -A fixture_what=([extra]="an extra export" [missing]="a missing export"
                         [decorated]="a decorated export name" [renamed]="a wrong DLL name")
declare -A fixture_exports=(
  [extra]=$'getMethodDescription\ninit\nprocess\nhelper'
  [missing]=$'getMethodDescription\ninit'
  [decorated]=$'getMethodDescription\ninit\nprocess@72=process'
  [renamed]=$'getMethodDescription\ninit\nprocess'
)
declare -A fixture_library=([extra]=Ferrotip_x64.dll [missing]=Ferrotip_x64.dll
                            [decorated]=Ferrotip_x64.dll [renamed]=Ferrotip.dll)
for fixture in extra missing decorated renamed; do
  if ! make_fixture "$fixture" "${fixture_library[$fixture]}" "${fixture_exports[$fixture]}"; then
    fail "export check refuses a DLL with ${fixture_what[$fixture]}: fixture did not build"
  elif "$root/tests/host/check_exports.sh" "$fixtures/$fixture.dll" >"$fixtures/$fixture.out"; then
    fail "export check refuses a DLL with ${fixture_what[$fixture]}: it accepted it"
  else
    pass "export check refuses a DLL with ${fixture_what[$fixture]}"
  fi
done
if ! x86_64-w64-mingw32-g++-posix -shared -o "$fixtures/runtime.dll" "$fixtures/runtime.cpp" \
     2>"$fixtures/runtime.log"; then
  fail "import check refuses a DLL that needs the GCC runtime DLLs: fixture did not build"
elif "$root/tests/host/check_imports.sh" "$fixtures/runtime.dll" >"$fixtures/runtime.out"; then
  fail "import check refuses a DLL that needs the GCC runtime DLLs: it accepted it"
else
  pass "import check refuses a DLL that needs the GCC runtime DLLs"
fi

# ---------------------------------------------------------------------------
phase "Linux module"
if [[ -f $linux_build/CMakeCache.txt ]] &&
   grep -q '^FERROTIP_SANITIZE:BOOL=ON' "$linux_build/CMakeCache.txt"; then
  note "$linux_build is a sanitizer build; using $root/build-host-linux instead"
  linux_build=$root/build-host-linux
fi
so=$linux_build/src/libferrotip.so
mkdir -p "$linux_build"
if [[ ! -f $linux_build/CMakeCache.txt ]]; then
  cmake -S "$root" -B "$linux_build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DFERROTIP_BUILD_TESTS=OFF -DFERROTIP_BUILD_CLI=OFF -DFERROTIP_BUILD_BENCHMARKS=OFF \
    >"$linux_build/check-configure.log" 2>&1 ||
    { cat "$linux_build/check-configure.log"; fail "Linux configure"; finish; }
fi
if ! cmake --build "$linux_build" --target ferrotip_module -j "$jobs" >"$linux_build/check-build.log" 2>&1; then
  tail -40 "$linux_build/check-build.log"
  fail "Linux build of libferrotip.so"
  finish
fi

# ---------------------------------------------------------------------------
phase "host programs"
out=$win_build/host
mkdir -p "$out/linux" "$out/win"
if ! cc "${host_cflags[@]}" "$root/tests/host/ferrotip_host.c" -o "$out/linux/ferrotip_host" \
       -ldl -pthread ||
   ! $mingw_cc "${host_cflags[@]}" -static "$root/tests/host/ferrotip_host.c" \
       -o "$out/win/ferrotip_host.exe"; then
  fail "host program builds for Linux and Windows"
  finish
fi
cp "$dll" "$out/win/Ferrotip_x64.dll"
if "$root/tests/host/check_imports.sh" "$out/win/ferrotip_host.exe" >/dev/null; then
  pass "host program builds for Linux and Windows (the .exe needs no MinGW DLLs)"
else
  fail "host program: ferrotip_host.exe imports non-system DLLs"
fi

# ---------------------------------------------------------------------------
phase "Wine"
export WINEDEBUG=-all
export WINEARCH=win64
export WINEPREFIX=${FERROTIP_WINEPREFIX:-/tmp/ferrotip-wine-$(id -u)}
export WINEDLLOVERRIDES="mscoree=;mshtml="   # no Mono or Gecko installer prompts
unset DISPLAY WAYLAND_DISPLAY                 # console programs only
run_wine() { timeout 900 wine "$@" </dev/null; }
# The first program run creates the prefix by itself (a few seconds); a 64-bit
# only Wine says once that it has no syswow64\rundll32.exe, which is harmless.
[[ -f $WINEPREFIX/system.reg ]] || note "creating Wine prefix $WINEPREFIX"
wine_used=1

# ---------------------------------------------------------------------------
phase "host program against libferrotip.so"
digest_lines() { tr -d '\r' <"$1" | grep -E '^(row|table|signal|run|thread) '; }
"$out/linux/ferrotip_host" "$so" >"$out/linux.txt" 2>&1
linux_status=$?
if (( linux_status == 0 )); then
  pass "Linux host program: $(tail -1 "$out/linux.txt")"
else
  grep -E '^FAIL|^cannot|lacks' "$out/linux.txt"
  fail "Linux host program (status $linux_status): $(tail -1 "$out/linux.txt")"
fi

phase "host program against Ferrotip_x64.dll under Wine"
# Where the load entry keeps the instance handle, from the DLL's symbol table
# (relative to the image base), so that the program can check it was recorded.
instance_args=()
image_base=$($objdump -p "$dll" | awk '$1 == "ImageBase" { print $2; exit }')
instance_symbol=$(x86_64-w64-mingw32-nm "$dll" 2>/dev/null | awk '$3 ~ /instanceHandle/ { print $1; exit }')
if [[ -n $image_base && -n $instance_symbol ]]; then
  instance_args=(--instance-rva "$(printf '%x' $((16#$instance_symbol - 16#$image_base)))")
else
  note "no instanceHandle symbol in the DLL: the recorded handle is not checked"
fi
(cd "$out/win" && run_wine ./ferrotip_host.exe Ferrotip_x64.dll "${instance_args[@]}") \
  >"$out/windows.txt" 2>"$out/windows.err"
windows_status=$?
if (( windows_status == 0 )); then
  pass "Windows host program under Wine: $(tail -1 "$out/windows.txt" | tr -d '\r')"
else
  tr -d '\r' <"$out/windows.txt" | grep -E '^FAIL|^cannot|lacks'
  head -20 "$out/windows.err"
  fail "Windows host program under Wine (status $windows_status): $(tail -1 "$out/windows.txt" | tr -d '\r')"
fi

# ---------------------------------------------------------------------------
phase "Linux and Windows repairs"
digest_lines "$out/linux.txt" >"$out/linux.digests"
digest_lines "$out/windows.txt" >"$out/windows.digests"
if [[ ! -s $out/linux.digests || ! -s $out/windows.digests ]]; then
  fail "digests: a host program printed none"
elif cmp -s "$out/linux.digests" "$out/windows.digests"; then
  pass "Linux and Windows repairs are bit-identical ($(grep -c '^run ' "$out/linux.digests") runs)"
else
  differing=$(diff "$out/linux.digests" "$out/windows.digests" | awk '/^</ { print $3 }' | sort -u | xargs)
  note "runs that differ: $differing"
  diff "$out/linux.digests" "$out/windows.digests" | sed 's/^/  /'
  # The analysis windows take their cosine from ferrotip::cosine, which gives the
  # same bits everywhere. Should a build call the C library's cos or cosf again,
  # the Windows module carries MinGW-w64's and the Linux one calls glibc's: if
  # preloading MinGW's cosine into the Linux host makes the repairs equal, the
  # cosine is all that differs.
  explained=0
  if ! nm -D --undefined-only "$so" | grep -wE 'cosf?' >/dev/null; then
    note "libferrotip.so calls no C library cosine: the difference is not the cosine's"
  elif [[ $(uname -m) == x86_64 ]]; then
    cc -O2 -shared -fPIC -o "$out/linux/mingw_cosine_shim.so" "$root/tests/host/mingw_cosine_shim.c" &&
    cc "${host_cflags[@]}" "$root/tests/host/math_probe.c" -o "$out/linux/math_probe" -lm &&
    $mingw_cc "${host_cflags[@]}" -static "$root/tests/host/math_probe.c" -o "$out/win/math_probe.exe"
    probe_built=$?
    if (( probe_built == 0 )); then
      "$out/linux/math_probe" >"$out/probe-glibc.txt"
      LD_PRELOAD=$out/linux/mingw_cosine_shim.so "$out/linux/math_probe" >"$out/probe-shim.txt"
      (cd "$out/win" && run_wine ./math_probe.exe) | tr -d '\r' >"$out/probe-windows.txt"
      LD_PRELOAD=$out/linux/mingw_cosine_shim.so "$out/linux/ferrotip_host" "$so" >"$out/linux-shim.txt" 2>&1
      digest_lines "$out/linux-shim.txt" >"$out/linux-shim.digests"
      note "C library cosine, glibc against the Windows module's, on the module's arguments:"
      for function in cosf cos; do
        sizes=$(grep -c "^$function " "$out/probe-glibc.txt")
        differ=$(diff <(grep "^$function " "$out/probe-glibc.txt") \
                      <(grep "^$function " "$out/probe-windows.txt") | grep -c '^<')
        note "  $function differs for $differ of $sizes table sizes"
      done
      if cmp -s "$out/probe-shim.txt" "$out/probe-windows.txt" &&
         cmp -s "$out/linux-shim.digests" "$out/windows.digests"; then
        explained=1
        note "with MinGW-w64's cosine preloaded, the Linux repairs equal the Windows ones bit for bit:"
        note "the C library's cosine (cos/cosf) is the only operation that differs"
      else
        note "MinGW-w64's cosine preloaded does not make the repairs equal: something else differs"
        diff "$out/linux-shim.digests" "$out/windows.digests" | sed 's/^/  /'
      fi
    fi
  fi
  if (( explained == 1 && strict == 0 )); then
    pass "Linux and Windows repairs differ only through the C library's cosine (runs: $differing)"
  else
    fail "Linux and Windows repairs differ (runs: $differing)"
  fi
fi

finish
