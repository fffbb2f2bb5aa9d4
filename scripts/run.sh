#!/usr/bin/env bash
# Installs what is missing, builds, and starts the tool on the sample game.
#
#   scripts/run.sh                                      zarn, addon mode (0)
#   scripts/run.sh -mintyard_items                      zarn, item mode (1)
#   scripts/run.sh -quern_mintyard                      quern addon mode (2)
#   scripts/run.sh -game sample/game/tolva              tolva map mode (3)
#   scripts/run.sh -game sample/game/tolva -mintyard_items   tolva item mode (4)
#
# Any other host option (+console variables, -addon NAME, -item_file PATH) is passed on.
set -euo pipefail
top="$(cd "$(dirname "$0")/.." && pwd)"
cd "$top"
scripts/install-deps.sh
scripts/build.sh
# The local content service, started when none is running (and filled with samples the first time).
scripts/brume-service.sh

if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ] && [ -z "${QT_QPA_PLATFORM:-}" ]; then
  echo "This machine has no display. Start the tool under a virtual one with:"
  echo "  xvfb-run -a scripts/run.sh $*"
  exit 1
fi

game="$top/sample/game/zarn"
args=()
while [ $# -gt 0 ]; do
  if [ "$1" = "-game" ] && [ $# -ge 2 ]; then
    case "$2" in /*) game="$2" ;; *) game="$top/$2" ;; esac
    shift 2
  elif [ "$1" = "-item_file" ] && [ $# -ge 2 ] && [[ "$2" != [-+]* ]]; then
    # The host runs from build/: a session path is taken from the top of the tree, as -game is.
    case "$2" in /*) args+=("$1" "$2") ;; *) args+=("$1" "$top/$2") ;; esac
    shift 2
  else
    args+=("$1")
    shift
  fi
done

# The host runs from build/, so that the packer the tool starts as "bin/bdl" is found.
cd "$top/build"
exec bin/mintyard_host -game "$game" "${args[@]}"
