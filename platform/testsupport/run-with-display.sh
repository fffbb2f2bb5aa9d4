#!/usr/bin/env bash
# Runs a command under a virtual display of its own: starts Xvfb on the first free display
# number (Xvfb picks it and tells it through -displayfd, so parallel tests never race for one),
# runs the command with DISPLAY set and Qt on xcb, and stops the server again.
#
#   run-with-display.sh COMMAND [ARGS...]
set -u
if ! command -v Xvfb >/dev/null; then
  echo "run-with-display.sh: Xvfb is not installed (scripts/install-deps.sh installs it)" >&2
  exit 1
fi
numberfile="$(mktemp)"
Xvfb -displayfd 3 -screen 0 1920x1080x24 -nolisten tcp 3>"$numberfile" 2>/dev/null &
server=$!
for _ in $(seq 1 200); do
  [ -s "$numberfile" ] && break
  kill -0 "$server" 2>/dev/null || break
  sleep 0.05
done
number="$(head -n 1 "$numberfile")"
rm -f "$numberfile"
if [ -z "$number" ]; then
  echo "run-with-display.sh: Xvfb did not start" >&2
  kill "$server" 2>/dev/null
  exit 1
fi
DISPLAY=":$number" QT_QPA_PLATFORM=xcb "$@"
status=$?
kill "$server" 2>/dev/null
wait "$server" 2>/dev/null
exit $status
