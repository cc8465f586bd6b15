#!/usr/bin/env bash
# Installs the Debian packages ferrotip needs to build and test, skipping what is
# already there. Needs root (or sudo) only when something is missing.
set -euo pipefail

packages=(cmake ninja-build g++ pkg-config libgtest-dev libgmock-dev libbenchmark-dev
          libsndfile1-dev libcli11-dev libfftw3-dev nlohmann-json3-dev)
packages+=(lmms-common ktuberling-data ffmpeg bc)  # declip: music and speech for its tests; ffmpeg adeclip and bc for bench-declip.sh
missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" ||
    missing+=("$package")
done
(( ${#missing[@]} == 0 )) && exit 0

echo "installing: ${missing[*]}"
sudo=""
(( EUID == 0 )) || sudo="sudo"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
