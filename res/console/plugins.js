// Plug-ins: every library of the home's Plugin/ folder, loaded or refused with the reason,
// and a button that loads the folder again (after the owner added or replaced one).

import { T, el, getJson, guarded, notify, post } from "./api.js";

const rows = document.getElementById("plugins-rows");
const empty = document.getElementById("plugins-empty");
const reload = document.getElementById("plugins-reload");

function typeText(type) {
  if (type === "view") return T("보기");
  if (type === "action") return T("실행");
  return "";
}

function fill(answer) {
  rows.replaceChildren(
    ...answer.plugins.map((plugin) =>
      el(
        "tr",
        { class: plugin.status === "loaded" ? "" : "refused" },
        el("td", {}, plugin.name || plugin.file),
        el("td", {}, plugin.author),
        el("td", {}, plugin.version),
        el("td", {}, typeText(plugin.type)),
        el("td", { title: plugin.file }, plugin.status === "loaded" ? T("사용 중") : plugin.status),
      ),
    ),
  );
  empty.hidden = answer.plugins.length > 0;
}

export async function show() {
  fill(await getJson("plugins"));
}

export function init() {
  reload.addEventListener(
    "click",
    guarded(async () => {
      fill(await post("plugins/reload", {}));
      notify(T("플러그인을 다시 읽었습니다."));
    }),
  );
}
