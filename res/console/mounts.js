// Mounts: what is shared under which name; added and edited in a dialog whose folder
// picker walks the owner's own folders.

import { T, clearErrors, el, getJson, guarded, isMissing, post, showMissing } from "./api.js";

const view = document.getElementById("view-mounts");
const dialog = document.getElementById("mount-dialog");
const form = document.getElementById("mount-form");
let pickerPath = "";
let pickerParent = "";

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
}

function openDialog(mount) {
  clearErrors(form);
  form.reset();
  document.getElementById("picker").hidden = true;
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

async function browse(path) {
  const listing = await getJson(`fs/list?path=${encodeURIComponent(path)}`);
  pickerPath = listing.path;
  pickerParent = listing.parent;
  document.getElementById("picker-path").textContent = listing.path;
  document.getElementById("picker-up").disabled = !listing.parent || listing.parent === listing.path;
  const folders = listing.folders.map((name) =>
    el(
      "li",
      {},
      el("button", { type: "button", class: "folder", onclick: guarded(() => browse(join(pickerPath, name)), form) }, name),
    ),
  );
  document.getElementById("picker-folders").replaceChildren(...folders);
  document.getElementById("picker-empty").hidden = folders.length > 0;
  document.getElementById("picker").hidden = false;
}

function join(folder, name) {
  return folder.endsWith("/") ? folder + name : `${folder}/${name}`;
}

export function init() {
  document.getElementById("mounts-add").addEventListener("click", () => openDialog(null));
  document.getElementById("mount-cancel").addEventListener("click", () => dialog.close());
  form.addEventListener("submit", (event) => {
    event.preventDefault();
    guarded(save, form)();
  });
  document.getElementById("mount-browse").addEventListener(
    "click",
    guarded(() => browse(form.elements.path.value.trim() || "/"), form),
  );
  document.getElementById("picker-up").addEventListener("click", guarded(() => browse(pickerParent), form));
  document.getElementById("picker-choose").addEventListener("click", () => {
    form.elements.path.value = pickerPath;
    form.elements.isFolder.checked = true;
    document.getElementById("picker").hidden = true;
    form.elements.path.focus();
  });
}

