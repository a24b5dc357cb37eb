// Transfers: one live row per upload or download, fed by the live data, each with a
// button that ends it.

import { T, el, guarded, post } from "./api.js";

const rows = document.getElementById("transfers-rows");

export function sizeText(bytes) {
  const units = ["B", "KiB", "MiB", "GiB", "TiB"];
  let value = bytes;
  let unit = 0;
  while (value >= 1024 && unit < units.length - 1) {
    value /= 1024;
    unit += 1;
  }
  return `${unit === 0 ? value : value.toFixed(1)} ${units[unit]}`;
}

function progressCell(transfer) {
  const label = `${transfer.percent}% (${sizeText(transfer.position)} / ${sizeText(transfer.total)})`;
  return el(
    "td",
    { class: "progress" },
    el("progress", { max: "100", value: String(transfer.percent), "aria-label": label }),
    el("span", { class: "progress-text" }, label),
  );
}

function row(transfer) {
  const kind = transfer.kind === "upload" ? T("업로드") : transfer.kind === "download" ? T("다운로드") : "";
  return el(
    "tr",
    { dataset: { id: String(transfer.id), position: String(transfer.position) } },
    el("td", {}, transfer.client),
    el("td", {}, transfer.user || "—"),
    el("td", { class: "file" }, kind && el("span", { class: `kind is-${transfer.kind}` }, kind), " ", transfer.file),
    progressCell(transfer),
    el("td", { class: "number" }, `${sizeText(transfer.speed)}/s`),
    el("td", { class: "number" }, transfer.timeLeft.trim()),
    el("td", {}, el("button", { type: "button", class: "danger", onclick: guarded(() => kick(transfer.id)) }, T("끊기"))),
  );
}

function updateEmpty() {
  document.getElementById("transfers-empty").hidden = rows.children.length > 0;
}

async function kick(id) {
  await post("transfers/kick", { id });
  remove(id);
}

export function upsert(transfer) {
  const fresh = row(transfer);
  const current = rows.querySelector(`tr[data-id="${CSS.escape(String(transfer.id))}"]`);
  if (current) current.replaceWith(fresh);
  else rows.append(fresh);
  updateEmpty();
}

export function remove(id) {
  rows.querySelector(`tr[data-id="${CSS.escape(String(id))}"]`)?.remove();
  updateEmpty();
}

export function replaceAll(transfers) {
  rows.replaceChildren(...transfers.map(row));
  updateEmpty();
}
