// The console's live data: the program's event stream when it has one, else a look every
// two seconds at the transfers and at the log lines after the last one seen. Views listen
// through the handlers given to startLive and never ask for this data themselves.

import { T, getJson } from "./api.js";

const pollMilliseconds = 2000;

let handlers = {};
let lastLogId = 0;
let pollTimer = 0;

function setMode(mode) {
  document.body.dataset.live = mode;
  document.getElementById("live-mode").textContent =
    mode === "events" ? T("실시간 갱신: 이벤트 스트림") : T("실시간 갱신: 2초마다 확인");
}

function takeLogLines(lines) {
  for (const line of lines) {
    // A line may come both from the first look and from the stream that follows it.
    if (line.id <= lastLogId) continue;
    lastLogId = line.id;
    handlers.log(line);
  }
}

async function look() {
  try {
    handlers.transfers(await getJson("transfers"));
    takeLogLines(await getJson(`log?after=${lastLogId}`));
  } catch {
    // The program may be stopping or busy; the next look tries again.
  }
}

function poll() {
  if (pollTimer) return;
  setMode("polling");
  pollTimer = setInterval(look, pollMilliseconds);
}

function parse(event) {
  try {
    return JSON.parse(event.data);
  } catch {
    return null;
  }
}

function listen() {
  if (typeof EventSource !== "function") return poll();
  const source = new EventSource("/api/v1/events");
  source.addEventListener("open", () => setMode("events"));
  source.addEventListener("transfer", (event) => {
    const transfer = parse(event);
    if (transfer) handlers.transfer(transfer);
  });
  source.addEventListener("transfer-end", (event) => {
    const end = parse(event);
    if (end) handlers.transferEnd(end.id);
  });
  source.addEventListener("log", (event) => {
    const line = parse(event);
    if (line) takeLogLines([line]);
  });
  source.addEventListener("settings", (event) => {
    const change = parse(event);
    if (change) handlers.settings(change.what);
  });
  source.addEventListener("address", (event) => {
    const found = parse(event);
    if (found) handlers.address(found.address);
  });
  // The browser retries a stream that broke by itself; one it gave up on (a refusal, an
  // endpoint this build lacks) stays closed, and then looking every two seconds must do.
  source.addEventListener("error", () => {
    if (source.readyState === EventSource.CLOSED) poll();
  });
}

// handlers: transfers(list) replaces every row, transfer(one) adds or updates a row,
// transferEnd(id) removes one, log(line) appends, settings(endpoint) reloads what changed,
// address(text) shows the visitors' address worked out anew.
export async function startLive(given) {
  handlers = given;
  await look();
  listen();
}
