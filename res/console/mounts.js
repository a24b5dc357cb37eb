// Mounts: what is shared under which name; added and edited in a dialog whose folder
// picker walks the owner's own folders.

import { T, clearErrors, el, getJson, guarded, isMissing, post, showMissing } from "./api.js";
import { folderPicker } from "./picker.js";
import { showTrash } from "./trash.js";

const view = document.getElementById("view-mounts");
const dialog = document.getElementById("mount-dialog");
const form = document.getElementById("mount-form");
let picker = null;

function row(mount) {
  const edit = el("button", { type: "button", onclick: () => openDialog(mount) }, T("편집"));
  const remove = el(
    "button",
    { type: "button", class: "danger", onclick: guarded(() => removeMount(mount.name)) },
    T("삭제"),
  );
  return el(
    "tr",
    { dataset: { name: mount.name } },
    el("th", { scope: "row" }, mount.name),
    el("td", { class: "path" }, mount.path),
    el("td", {}, mount.isFolder ? T("폴더") : T("파일")),
    el("td", {}, el("a", { href: visitorsLink(mount.link), target: "_blank", rel: "noopener" }, mount.link)),
    el("td", { class: "actions" }, edit, " ", remove),
  );
}

// The link is a path on the visitors' server, whose address Home shows.
function visitorsLink(link) {
  const address = document.getElementById("home-address").textContent.replace(/\/+$/, "");
  return address ? address + link : link;
}

export async function show() {
  let mounts;
  try {
    mounts = await getJson("mounts");
  } catch (error) {
    if (isMissing(error)) return showMissing(view);
    throw error;
  }
  document.getElementById("mounts-rows").replaceChildren(...mounts.map(row));
  document.getElementById("mounts-empty").hidden = mounts.length > 0;
  await showTrash();
}

function openDialog(mount) {
  clearErrors(form);
  form.reset();
  picker.hide();
  document.getElementById("mount-dialog-title").textContent = mount ? T("마운트 편집") : T("마운트 추가");
  form.elements.original.value = mount ? mount.name : "";
  form.elements.name.value = mount ? mount.name : "";
  form.elements.path.value = mount ? mount.path : "";
  form.elements.isFolder.checked = mount ? mount.isFolder : true;
  form.elements.note.value = mount ? mount.note : "";
  form.elements.option.checked = mount ? mount.option : false;
  dialog.showModal();
}

async function save() {
  const fields = {
    name: form.elements.name.value,
    path: form.elements.path.value,
    isFolder: form.elements.isFolder.checked ? 1 : 0,
    note: form.elements.note.value,
    option: form.elements.option.checked ? 1 : 0,
  };
  const original = form.elements.original.value;
  if (original) await post("mounts/edit", { original, ...fields });
  else await post("mounts/add", fields);
  dialog.close();
  await show();
}

async function removeMount(name) {
  if (!window.confirm(T("%s 마운트를 지울까요? 그 안의 파일은 그대로 남습니다.", name))) return;
  await post("mounts/remove", { name });
  await show();
}

export function init() {
  document.getElementById("mounts-add").addEventListener("click", () => openDialog(null));
  document.getElementById("mount-cancel").addEventListener("click", () => dialog.close());
  form.addEventListener("submit", (event) => {
    event.preventDefault();
    guarded(save, form)();
  });
  picker = folderPicker("picker", form, (path) => {
    form.elements.path.value = path;
    form.elements.isFolder.checked = true;
    form.elements.path.focus();
  });
  document.getElementById("mount-browse").addEventListener(
    "click",
    guarded(() => picker.browse(form.elements.path.value.trim() || "/"), form),
  );
}
