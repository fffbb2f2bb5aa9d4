#!/usr/bin/env bash
# Installs the Debian packages the project needs, only those that are missing.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev rapidjson-dev zlib1g-dev
  clang libclang-rt-14-dev
  unzip python3
  qtbase5-dev qtbase5-dev-tools libcpp-httplib-dev libssl-dev libsqlite3-dev xvfb xauth
  libsdl2-dev libstb-dev libassimp-dev assimp-testmodels libmeshoptimizer-dev
  qt5-image-formats-plugins kimageformat-plugins libgl1-mesa-dri libgl-dev
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "Installing: ${missing[*]}"
sudo=""
if [ "$(id -u)" -ne 0 ]; then
  sudo="sudo"
fi
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
