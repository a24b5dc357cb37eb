// The trash of each folder mount, under the mounts: what visitors deleted waits there
// until the owner empties it.

import { T, el, getJson, guarded, post } from "./api.js";
import { sizeText } from "./transfers.js";

const list = document.getElementById("trash-rows");

function row(mount) {
  const filled = mount.files > 0 || mount.bytes > 0;
  const empty = el(
    "button",
    { type: "button", class: "danger", disabled: !filled, onclick: guarded(() => emptyTrash(mount.name)) },
    T("비우기"),
  );
  return el(
    "li",
    { dataset: { name: mount.name } },
    el("strong", {}, mount.name),
    ": ",
    el("span", { class: "trash-figures" }, T("휴지통: 파일 %d개, %s", mount.files, sizeText(mount.bytes))),
    " ",
    empty,
  );
}

function fill(answer) {
  list.replaceChildren(...answer.mounts.map(row));
  document.getElementById("trash").hidden = answer.mounts.length === 0;
}

async function emptyTrash(name) {
  if (!window.confirm(T("%s의 휴지통을 비울까요? 되돌릴 수 없습니다.", name))) return;
  fill(await post("trash/empty", { mount: name }));
}

export async function showTrash() {
  fill(await getJson("trash"));
}
