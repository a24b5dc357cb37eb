// Log: the program's lines as they come, newest at the bottom, marked by level. It keeps
// following new lines unless the owner has scrolled up to read older ones.

import { T, el } from "./api.js";

const list = document.getElementById("log-lines");
const filter = document.getElementById("log-filter");
const keptLines = 2000;
const levels = {
  1: () => T("HTTP 추적"),
  2: () => T("진행 상황"),
  4: () => T("연결 오류"),
  8: () => T("오류"),
  16: () => T("알림"),
  32: () => T("치명적 오류"),
};

function isAtBottom() {
  return list.scrollHeight - list.scrollTop - list.clientHeight < 24;
}

function matches(item) {
  const wanted = filter.value.trim().toLowerCase();
  return wanted === "" || item.textContent.toLowerCase().includes(wanted);
}

export function append(line) {
  const following = isAtBottom();
  const level = levels[line.level] ? line.level : 16;
  const item = el(
    "li",
    { class: `level-${level}`, dataset: { id: String(line.id) } },
    el("span", { class: "level" }, levels[level]()),
    " ",
    el("span", { class: "text" }, line.text),
  );
  item.hidden = !matches(item);
  list.append(item);
  while (list.children.length > keptLines) list.firstElementChild.remove();
  if (following) list.scrollTop = list.scrollHeight;
}

function applyFilter() {
  for (const item of list.children) item.hidden = !matches(item);
  list.scrollTop = list.scrollHeight;
}

export function init() {
  filter.addEventListener("input", applyFilter);
  document.getElementById("log-bottom").addEventListener("click", () => {
    list.scrollTop = list.scrollHeight;
  });
}

// A list that was hidden has no height; once shown it starts at the newest line.
export function show() {
  list.scrollTop = list.scrollHeight;
}
