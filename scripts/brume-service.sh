#!/usr/bin/env bash
# Starts the local Mintyard content service when none answers at BRUME_SERVICE (default
# 127.0.0.1:27080). Its data lives in $XDG_DATA_HOME/mintyard/service (~/.local/share/... when
# unset); on its first start it is filled with a few sample files of the sample account.
#
#   scripts/brume-service.sh          start it if needed (build/bin/brume_service must exist)
set -euo pipefail
top="$(cd "$(dirname "$0")/.." && pwd)"
address="${BRUME_SERVICE:-127.0.0.1:27080}"
port="${address##*:}"
data="${XDG_DATA_HOME:-$HOME/.local/share}/mintyard/service"

answers() {
  python3 - "$address" <<'PY'
import json, sys, urllib.request
try:
    with urllib.request.urlopen("http://%s/api/v1/status" % sys.argv[1], timeout=2) as r:
        sys.exit(0 if json.loads(r.read()).get("service") == "mintyard" else 1)
except Exception:
    sys.exit(1)
PY
}

if answers; then
  exit 0
fi
case "$address" in
  127.0.0.1:*|localhost:*) ;;
  *) echo "No content service answers at $address, and only a local one can be started here."; exit 0 ;;
esac

mkdir -p "$data"
first=0
[ -e "$data/seeded" ] || first=1
nohup "${BRUME_SERVICE_BIN:-$top/build/bin/brume_service}" --data-dir "$data" --port "$port" --account 1 --persona "Sample Author" \
  >>"$data/service.log" 2>&1 &
for _ in $(seq 1 50); do
  if answers; then break; fi
  sleep 0.1
done
if ! answers; then
  echo "The content service did not start; see $data/service.log"
  exit 0
fi
echo "Started the content service at $address (data in $data)."
if [ "$first" = 1 ]; then
  python3 "$top/scripts/seed_brume_service.py" "$address" && touch "$data/seeded"
fi
