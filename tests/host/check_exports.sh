#!/usr/bin/env bash
# Reads a DLL's export table and fails unless it is exactly the module's:
# a 64-bit DLL with an entry point, whose export directory names it
# Ferrotip_x64.dll and which exports getMethodDescription, init and process by
# plain undecorated name, nothing else, no ordinal-only or forwarded entries.
#
#   tests/host/check_exports.sh DLL [EXPECTED_DLL_NAME]
#
# OBJDUMP overrides the objdump used (default x86_64-w64-mingw32-objdump).
set -u

dll=${1:?usage: check_exports.sh DLL [EXPECTED_DLL_NAME]}
expected_name=${2:-Ferrotip_x64.dll}
objdump=${OBJDUMP:-x86_64-w64-mingw32-objdump}
expected_exports="getMethodDescription init process"

problems=0
problem() { echo "  export check: $*"; problems=$((problems + 1)); }

if ! dump=$("$objdump" -p "$dll" 2>&1); then
  echo "  export check: $objdump cannot read $dll: $dump"
  exit 1
fi

magic=$(awk '$1 == "Magic" { print $2; exit }' <<<"$dump")
[[ $magic == 020b ]] || problem "not a PE32+ (64-bit) image: Magic '$magic'"

characteristics=$(awk '$1 == "Characteristics" { print $2; exit }' <<<"$dump")
if [[ -z $characteristics ]] || (( (characteristics & 0x2000) == 0 )); then
  problem "not a DLL: Characteristics '$characteristics'"
fi

entry=$(awk '$1 == "AddressOfEntryPoint" { print $2; exit }' <<<"$dump")
if [[ -z $entry ]] || (( 16#$entry == 0 )); then
  problem "no entry point: the load entry is missing"
fi

# The export directory as objdump interprets it.
exports_section=$(awk '
  /^The Export Tables/ { inside = 1; next }
  inside && /^The / { exit }
  inside { print }' <<<"$dump")
if [[ -z $exports_section ]]; then
  problem "no export table"
  echo "  export check: $problems problem(s) in $dll"
  exit 1
fi

dll_name=$(awk '$1 == "Name" { print $NF; exit }' <<<"$exports_section")
[[ $dll_name == "$expected_name" ]] ||
  problem "export directory names the DLL '$dll_name', expected '$expected_name'"

address_count=$(awk '/Export Address Table/ && NF == 4 { print $4; exit }' <<<"$exports_section")
name_count=$(awk '/\[Name Pointer\/Ordinal\] Table/ && NF == 4 { print $4; exit }' <<<"$exports_section")
(( 16#${address_count:-0} == 3 )) ||
  problem "export address table has $((16#${address_count:-0})) entries, expected 3"
(( 16#${name_count:-0} == 3 )) ||
  problem "name table has $((16#${name_count:-0})) entries, expected 3"

if grep -q 'Forwarder RVA' <<<"$exports_section"; then
  problem "forwarded exports: $(grep 'Forwarder RVA' <<<"$exports_section" | tr -s ' \t' ' ')"
fi

names=$(awk '
  /^\[Ordinal\/Name Pointer\] Table/ { inside = 1; next }
  inside && NF == 0 { exit }
  inside { sub(/^[ \t]*\[[ 0-9]*\][ \t]*/, ""); print }' <<<"$exports_section")

for name in $names; do
  case $name in
    getMethodDescription|init|process) ;;
    *@*|_*|\?*)
      problem "decorated export name '$name'" ;;
    *)
      problem "extra export '$name'" ;;
  esac
done
for name in $expected_exports; do
  grep -qx "$name" <<<"$names" || problem "missing export '$name'"
done
duplicates=$(sort <<<"$names" | uniq -d)
[[ -z $duplicates ]] || problem "exported twice: $duplicates"

echo "  exports of $(basename "$dll"): name '$dll_name', entry point 0x${entry:-?}, functions: ${names//$'\n'/ }"
if (( problems > 0 )); then
  echo "  export check: $problems problem(s) in $dll"
  exit 1
fi
exit 0
