#!/usr/bin/env bash
# Installs the Debian packages ferrotip needs to build and test, skipping what is
# already there. Needs root (or sudo) only when something is missing.
set -euo pipefail

packages=(cmake ninja-build g++ pkg-config libgtest-dev libgmock-dev libbenchmark-dev
          libsndfile1-dev libcli11-dev libfftw3-dev nlohmann-json3-dev)
packages+=(python3-dev python3-pybind11 python3-numpy python3-pytest)  # the Python module and its tests
packages+=(help2man dpkg-dev man-db)  # man page, Debian package (dpkg-shlibdeps), man -l in the package check
packages+=(alsa-utils extremetuxracer-data)  # real speech and music for the declick quality test
packages+=(lv2-dev lilv-utils liblilv-dev sordi)  # LV2 plug-in: headers, lv2_validate (sord_validate), in-process and command-line hosts
packages+=(hedgewars-data ktuberling-data)  # real music and speech for the dropout filler's quality test
packages+=(lmms-common ktuberling-data)  # real music and speech for the declip quality test
packages+=(fillets-ng-data-nl)  # real acted dialogue at 22.05 kHz for the declip quality test
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
