#!/usr/bin/env bash
# Fails if any object file of a build holds a fused multiply-add instruction
# (vfmadd*, vfmsub*, vfnmadd*, vfnmsub*, vfmaddsub*, vfmsubadd*): a fused product
# rounds once where the plain loop rounds twice, so results would depend on the
# target the build was configured for. Usage: check-unfused.sh <build dir>
set -euo pipefail
build=${1:?usage: check-unfused.sh <build dir>}
fused='[[:space:]]vf(n?m(add|sub)|maddsub|msubadd)[0-9]*[ps][sdh]([[:space:]]|$)'
found=0
objects=0
while IFS= read -r -d '' object; do
  objects=$((objects + 1))
  hits=$(objdump -d -C --no-show-raw-insn "$object" |
         awk -v pattern="$fused" '/^[0-9a-f]+ <.*>:$/ { name = $0 } $0 ~ pattern { print name "  " $0 }')
  if [[ -n $hits ]]; then
    echo "fused multiply-add in ${object#"$build"/}:"
    echo "$hits"
    found=1
  fi
done < <(find "$build" -name '*.o' -print0)
(( objects > 0 )) || { echo "no object files under $build" >&2; exit 1; }
(( found == 0 )) || exit 1
echo "no fused multiply-add in $objects object files"
