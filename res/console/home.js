// Home: the address visitors use, whether the server listens, and how busy it is.

import { initAddressCard, showAddress } from "./addresscard.js";
import { T, getJson, guarded, isMissing, notify, post } from "./api.js";

const view = document.getElementById("view-home");
let status = null;

function uptimeText(seconds) {
  const days = Math.floor(seconds / 86400);
  const clock = [Math.floor(seconds / 3600) % 24, Math.floor(seconds / 60) % 60, seconds % 60]
    .map((part) => String(part).padStart(2, "0"))
    .join(":");
  return days > 0 ? T("%s일 %s", days, clock) : clock;
}

// The program knows its host; visitors need the whole address, port included unless it
// is HTTP's own.
function visitorsAddress() {
  return status.port === 80 ? `http://${status.address}/` : `http://${status.address}:${status.port}/`;
}

function render() {
  // A stopped server has no port; the address it had stays on show.
  showAddress(status.listening ? visitorsAddress() : null, status.listening);
  const state = document.getElementById("home-state");
  state.textContent = status.listening ? T("대기 중") : T("멈춤");
  state.classList.toggle("is-on", status.listening);
  document.getElementById("home-start").disabled = status.listening;
  document.getElementById("home-stop").disabled = !status.listening;
  const port = document.getElementById("home-port");
  if (document.activeElement !== port && status.listening) port.value = status.port;
  document.getElementById("home-transfers").textContent = status.transfers;
  document.getElementById("home-connections").textContent = status.connections;
  document.getElementById("home-uptime").textContent = uptimeText(status.uptimeSeconds);
  const newer = document.getElementById("home-newer");
  newer.hidden = !(status.newerRevision > 0);
  newer.textContent = status.newerRevision > 0 ? T("새 버전(r%d)이 나왔습니다.", status.newerRevision) : "";
  document.getElementById("home-version").textContent = T(
    "%s (리비전 %s)",
    status.version,
    status.revision,
  );
}

export async function refresh() {
  try {
    status = await getJson("status");
    render();
  } catch (error) {
    notify(error.message, true);
  }
}

async function change(endpoint, fields = {}) {
  try {
    await post(endpoint, fields);
  } catch (error) {
    if (isMissing(error)) notify(T("이 기능은 이 빌드에 아직 없습니다."), true);
    else throw error;
  }
  await refresh();
}

export function init() {
  initAddressCard();
  document.getElementById("home-start").addEventListener("click", guarded(() => change("server/start")));
  document.getElementById("home-stop").addEventListener("click", guarded(() => change("server/stop")));
  const form = document.getElementById("home-port-form");
  form.addEventListener("submit", (event) => {
    event.preventDefault();
    guarded(() => change("server/port", { port: form.elements.port.value }), form)();
  });
  // The counts change all the time; while Home is on screen they follow.
  setInterval(() => {
    if (!view.hidden) refresh();
  }, 2000);
}

export const show = refresh;
