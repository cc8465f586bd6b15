#!/usr/bin/env bash
# Lists the DLLs a Windows image imports and fails on any that is not part of
# Windows itself: the module must stand alone, with the C++ and GCC runtimes
# linked in (no libstdc++-6.dll, libgcc_s_seh-1.dll, libwinpthread-1.dll).
#
#   tests/host/check_imports.sh IMAGE...
#
# OBJDUMP overrides the objdump used (default x86_64-w64-mingw32-objdump).
set -u

(( $# > 0 )) || { echo "usage: check_imports.sh IMAGE..." >&2; exit 2; }
objdump=${OBJDUMP:-x86_64-w64-mingw32-objdump}

# DLLs that every Windows installation has.
is_system_dll() {
  local name=${1,,}
  case $name in
    kernel32.dll|kernelbase.dll|ntdll.dll|msvcrt.dll|ucrtbase.dll|advapi32.dll|user32.dll|\
    gdi32.dll|shell32.dll|ole32.dll|oleaut32.dll|bcrypt.dll|ws2_32.dll|api-ms-win-*.dll)
      return 0 ;;
  esac
  return 1
}

status=0
for image in "$@"; do
  if ! dump=$("$objdump" -p "$image" 2>&1); then
    echo "  import check: $objdump cannot read $image: $dump"
    status=1
    continue
  fi
  imports=$(awk '/DLL Name:/ { print $3 }' <<<"$dump")
  echo "  imports of $(basename "$image"): ${imports//$'\n'/ }"
  for name in $imports; do
    if ! is_system_dll "$name"; then
      echo "  import check: $(basename "$image") imports $name, which is not a system DLL"
      status=1
    fi
  done
done
exit $status
