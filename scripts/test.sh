#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: the unit and road tests of build/,
# then a short bounded run of every libFuzzer target in a separate clang build, build-fuzz/.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh
(cd build && ctest -j2 --output-on-failure --timeout 900)

CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMINTYARD_FUZZ=ON >/dev/null
cmake --build build-fuzz -j2
(cd build-fuzz && ctest -j2 --output-on-failure --timeout 900)
