#!/usr/bin/env bash
# Measures a name search over 100,000 entries (100 folders of 999 files and the folders
# themselves) that matches nothing, so the whole tree is read; prints the median of the
# runs in ms. Usage: bench/search.sh [runs] (default 3; the build in build/ is used).
set -euo pipefail
cd "$(dirname "$0")/.."
RUNS="${1:-3}"
WORK=$(mktemp -d /tmp/lumidrop-search.XXXXXX)
PID=
cleanup() { [[ -n "$PID" ]] && { kill "$PID" 2>/dev/null || true; wait "$PID" 2>/dev/null || true; }; rm -rf "$WORK"; }
trap cleanup EXIT

python3 - "$WORK/tree" <<'PY'
import os, sys
for folder in range(100):
    path = os.path.join(sys.argv[1], "folder-%03d" % folder)
    os.makedirs(path)
    for i in range(999):
        open(os.path.join(path, "file-%03d.txt" % i), "w").close()
PY
mkdir -p "$WORK/home"
PORT=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
./build/lumidrop --home "$WORK/home" --port "$PORT" --mount "tree=$WORK/tree" >"$WORK/out" 2>&1 &
PID=$!
for _ in $(seq 100); do curl -s -o /dev/null "http://127.0.0.1:$PORT/tree/" && break; sleep 0.1; done
URL="http://127.0.0.1:$PORT/tree/?action=Search&q=no+such+name"
curl -s -o /dev/null "$URL"  # warm the caches
for _ in $(seq "$RUNS"); do
    curl -s -o /dev/null -w '%{time_total}\n' "$URL"
done | sort -g | awk '{a[NR] = $1 * 1000} END {m = (NR % 2) ? a[(NR + 1) / 2] : (a[NR / 2] + a[NR / 2 + 1]) / 2;
    printf "search over 100,000 entries: %.1f ms (median of %d)\n", m, NR}'
