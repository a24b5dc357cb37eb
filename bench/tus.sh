#!/usr/bin/env bash
# A 1 GiB resumable upload in 8 MiB PATCH requests beside the multipart upload of the same
# file, into the program built in build/. Prints the medians in MB/s and their ratio (goal:
# resumable >= 0.90x multipart).
# Usage: bench/tus.sh [runs]   (default 3)
set -euo pipefail
cd "$(dirname "$0")/.."
RUNS="${1:-3}"
WORK=$(mktemp -d /tmp/lumidrop-tus-bench.XXXXXX)
PORT=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
mkdir -p "$WORK/home" "$WORK/drop"
printf 'authorities+=.anonymous|drop|7\r\n' > "$WORK/home/mount.ini"
head -c $((1 << 30)) /dev/urandom > "$WORK/big.bin"
./build/lumidrop --home "$WORK/home" --port "$PORT" --mount "drop=$WORK/drop" \
    >"$WORK/lumidrop.out" 2>&1 &
PID=$!
trap 'kill $PID 2>/dev/null; wait $PID 2>/dev/null; rm -rf "$WORK"' EXIT
for _ in $(seq 100); do curl -s -o /dev/null "http://127.0.0.1:$PORT/" && break; sleep 0.1; done

multipart() {
    curl -s -o /dev/null -w '%{speed_upload}\n' -F "uploadfile=@$WORK/big.bin" \
        "http://127.0.0.1:$PORT/drop/?key=bench" | awk '{printf "%.1f\n", $1 / 1e6}'
    rm -f "$WORK/drop/big.bin"
}
resumable() {
    python3 - "$PORT" "$WORK/big.bin" <<'PY'
import http.client, os, sys, time
port, path = int(sys.argv[1]), sys.argv[2]
size, chunk = os.path.getsize(path), 8 << 20
connection = http.client.HTTPConnection("127.0.0.1", port)
version = {"Tus-Resumable": "1.0.0"}
start = time.monotonic()
connection.request("POST", "/drop/?action=tus", headers={**version, "Upload-Length": str(size),
                   "Upload-Metadata": "filename YmlnLmJpbg=="})
created = connection.getresponse(); created.read()
location = created.getheader("Location")
# The body goes from the file to the socket by sendfile, as curl streams the multipart
# side: a client that read each piece into memory first would leave the server idle
# meanwhile and measure itself.
with open(path, "rb") as source:
    for offset in range(0, size, chunk):
        length = min(chunk, size - offset)
        connection.putrequest("PATCH", location, skip_accept_encoding=True)
        for name, value in {**version, "Upload-Offset": str(offset), "Content-Length": str(length),
                            "Content-Type": "application/offset+octet-stream"}.items():
            connection.putheader(name, value)
        connection.endheaders()
        at, end = offset, offset + length
        while at < end:
            at += os.sendfile(connection.sock.fileno(), source.fileno(), at, end - at)
        answer = connection.getresponse(); answer.read()
        if answer.status != 204: sys.exit(f"PATCH answered {answer.status}")
print("%.1f" % (size / (time.monotonic() - start) / 1e6))
PY
    rm -f "$WORK/drop/big.bin"
}
median() { sort -g | awk '{a[NR]=$1} END {print (NR%2) ? a[(NR+1)/2] : (a[NR/2]+a[NR/2+1])/2}'; }

# The two take turns, so that a slow moment of a shared machine falls on both.
for _ in $(seq "$RUNS"); do
    multipart >>"$WORK/multipart.txt"
    resumable >>"$WORK/resumable.txt"
done
MP=$(median <"$WORK/multipart.txt")
TUS=$(median <"$WORK/resumable.txt")
echo
echo "1 GiB upload, multipart (MB/s):            $MP"
echo "1 GiB upload, resumable 8 MiB (MB/s):      $TUS"
awk -v t="$TUS" -v m="$MP" 'BEGIN { printf "  resumable / multipart:                   %.2f (goal >= 0.90)\n", (m > 0) ? t / m : 0 }'
