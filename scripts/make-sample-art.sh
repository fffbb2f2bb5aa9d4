#!/usr/bin/env bash
# Makes the sample game's art again: builds make_sample_art in build/ and runs it over sample/. It
# reads the game's scripts (heroes, units, the item test manifest, items_game, the import
# templates) and writes the meshes, animations, textures, materials and model documents under
# sample/content/zarn, the templates' default animations under sample/game/zarn, and
# items_game.txt with the models, visuals and default sets. The output is the same on every run;
# it is committed, and sampleart_test fails when it is not what the generators make.
set -euo pipefail
cd "$(dirname "$0")/.."
if [ ! -f build/build.ninja ] && [ ! -f build/Makefile ]; then
  cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
cmake --build build -j2 --target make_sample_art
QT_QPA_PLATFORM=offscreen build/bin/make_sample_art sample
