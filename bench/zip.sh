#!/usr/bin/env bash
# Zip downloads beside plain downloads of the same bytes, on loopback: a folder of 1,000
# files of 1 MiB (the plain side fetches them one after another on one kept connection)
# and a folder holding one file of 1 GiB. Goal: the zip moves at least 0.8x as fast.
# Usage: bench/zip.sh [runs]   (default 3; bench/run calls it with its own count)
set -euo pipefail
cd "$(dirname "$0")/.."
RUNS="${1:-3}"
[[ "$RUNS" =~ ^[1-9][0-9]*$ ]] || { echo "usage: bench/zip.sh [runs]" >&2; exit 2; }
[[ -x build/lumidrop ]] || make -s all >/dev/null

WORK=$(mktemp -d /tmp/lumidrop-zip-bench.XXXXXX)
PID=""
cleanup() {
    [[ -n "$PID" ]] && { kill "$PID" 2>/dev/null || true; wait "$PID" 2>/dev/null || true; }
    rm -rf "$WORK"
}
trap cleanup EXIT

echo "Preparing zip files in $WORK ..."
mkdir -p "$WORK/home" "$WORK/thousand" "$WORK/one"
python3 - "$WORK/thousand" <<'PY'
import os, sys
for i in range(1000):
    with open(os.path.join(sys.argv[1], "file-%04d.bin" % i), "wb") as f:
        f.write(os.urandom(1 << 20))
PY
head -c $((1 << 30)) /dev/urandom > "$WORK/one/big.bin"

PORT=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
./build/lumidrop --home "$WORK/home" --port "$PORT" --mount "thousand=$WORK/thousand" \
    --mount "one=$WORK/one" >>"$WORK/lumidrop.out" 2>&1 &
PID=$!
BASE="http://127.0.0.1:$PORT"
for _ in $(seq 100); do curl -s -o /dev/null "$BASE/one/" && break; sleep 0.1; done

median() { sort -g | awk '{a[NR]=$1} END {print (NR%2) ? a[(NR+1)/2] : (a[NR/2]+a[NR/2+1])/2}'; }
now() { date +%s.%N; }
# MB/s of one command that moves `bytes`.
timed() {
    local bytes=$1 start end
    shift
    start=$(now)
    "$@" >/dev/null
    end=$(now)
    awk -v b="$bytes" -v s="$start" -v e="$end" 'BEGIN { printf "%.0f\n", b / (e - s) / 1e6 }'
}
plain_thousand() { curl -s -o /dev/null "$BASE/thousand/file-[0000-0999].bin"; }
plain_one() { curl -s -o /dev/null "$BASE/one/big.bin"; }
zip_of() { curl -s -o /dev/null "$BASE/$1/?action=Zip"; }

THOUSAND=$((1000 << 20))
ONE=$((1 << 30))
zip_of thousand; plain_thousand  # warm the page cache
PT=$(for _ in $(seq "$RUNS"); do timed "$THOUSAND" plain_thousand; done | median)
ZT=$(for _ in $(seq "$RUNS"); do timed "$THOUSAND" zip_of thousand; done | median)
PO=$(for _ in $(seq "$RUNS"); do timed "$ONE" plain_one; done | median)
ZO=$(for _ in $(seq "$RUNS"); do timed "$ONE" zip_of one; done | median)

echo
echo "Zip downloads, medians of $RUNS runs (MB/s)."
printf '%-34s %11s %11s %8s   %-10s %s\n' workload zip plain ratio goal met
for line in "1,000 x 1 MiB folder|$ZT|$PT" "1 GiB file folder|$ZO|$PO"; do
    IFS='|' read -r label zip plain <<< "$line"
    awk -v l="$label" -v z="$zip" -v p="$plain" 'BEGIN {
        r = (p > 0) ? z / p : 0
        printf "%-34s %11.0f %11.0f %7.2fx   %-10s %s\n", l, z, p, r, ">= 0.80x", (r >= 0.8) ? "yes" : "NO"
    }'
done
