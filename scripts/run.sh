#!/usr/bin/env bash
# Installs what is missing, builds, and starts the tool on the sample game.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh
echo "Built into build/. The tool host comes with the tool shell; for now the command-line"
echo "tools are ready: build/bin/mintyard_kv check FILE..."
