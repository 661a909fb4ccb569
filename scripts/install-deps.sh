#!/usr/bin/env bash
# Installs what zorTerrain needs to build, test, fuzz and benchmark on Debian.
# Idempotent: when every package is present it only checks and returns.
set -euo pipefail

packages=(
  cmake ninja-build g++ make pkg-config
  clang libclang-rt-14-dev clang-format
  libxml2-dev libgdal-dev gdal-bin proj-data libboost-dev
  nlohmann-json3-dev libcli11-dev libeigen3-dev
  libgeographiclib-dev geographiclib-tools libcairo2-dev
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  pybind11-dev python3-dev python3-pytest python3-numpy python3-gdal
  libopenscenegraph-dev openscenegraph xvfb xauth libgl1-mesa-dri
)

missing=()
for p in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$p")
done

if ((${#missing[@]} == 0)); then
  exit 0
fi

echo "installing: ${missing[*]}"
sudo_cmd=()
if [[ $(id -u) -ne 0 ]]; then sudo_cmd=(sudo); fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
