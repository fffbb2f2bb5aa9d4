#!/usr/bin/env bash
# Draws the images of the sample game tree again: builds make_sample_images in build/ and runs it
# into sample/game/core/tools/images (the tool images) and sample/game/zarn_addons (the
# pictures of the sample addons). The output is the same on every run; the images are committed.
set -euo pipefail
cd "$(dirname "$0")/.."
if [ ! -f build/build.ninja ] && [ ! -f build/Makefile ]; then
  cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
cmake --build build --target make_sample_images
build/bin/make_sample_images sample/game/core/tools/images
build/bin/make_sample_images --addons sample/game/zarn_addons
