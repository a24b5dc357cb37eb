// A folder picker that walks the owner's own folders through fs/list. It fills the empty
// box whose id is PREFIX; its parts get the ids PREFIX-path, -up, -folders, -empty and
// -choose.

import { T, el, getJson, guarded } from "./api.js";

// A translated element that translatePage can translate again when the language changes.
function text(tag, properties, key) {
  return el(tag, { ...properties, dataset: { t: key } }, T(key));
}

function build(box, prefix) {
  box.replaceChildren(
    el(
      "p",
      { class: "picker-head" },
      text("button", { type: "button", id: `${prefix}-up` }, "상위 폴더"),
      " ",
      el("span", { id: `${prefix}-path`, class: "picker-path" }),
    ),
    el("ul", { id: `${prefix}-folders`, class: "picker-folders", "aria-label": "Folders" }),
    text("p", { id: `${prefix}-empty`, class: "empty", hidden: true }, "하위 폴더가 없습니다."),
    el("p", {}, text("button", { type: "button", id: `${prefix}-choose` }, "이 폴더 선택")),
  );
}

function join(folder, name) {
  return folder.endsWith("/") ? folder + name : `${folder}/${name}`;
}

// `onChoose(path)` hears the folder chosen; refusals show on `form`.
export function folderPicker(prefix, form, onChoose) {
  const part = (name) => document.getElementById(name ? `${prefix}-${name}` : prefix);
  let current = "";
  let parent = "";
  build(part(), prefix);

  async function browse(path) {
    const listing = await getJson(`fs/list?path=${encodeURIComponent(path)}`);
    current = listing.path;
    parent = listing.parent;
    part("path").textContent = listing.path;
    part("up").disabled = !listing.parent || listing.parent === listing.path;
    const folders = listing.folders.map((name) =>
      el(
        "li",
        {},
        el("button", { type: "button", class: "folder", onclick: guarded(() => browse(join(current, name)), form) }, name),
      ),
    );
    part("folders").replaceChildren(...folders);
    part("empty").hidden = folders.length > 0;
    part().hidden = false;
  }

  part("up").addEventListener("click", guarded(() => browse(parent), form));
  part("choose").addEventListener("click", () => {
    part().hidden = true;
    onChoose(current);
  });
  return {
    browse,
    hide() {
      part().hidden = true;
    },
  };
}
