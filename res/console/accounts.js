// Accounts and rights: the accounts on one side, and on the other what each account may do
// on each mount, four switches per pair. The anonymous visitor is a row like the others.

import { T, clearErrors, el, getJson, guarded, isMissing, notify, post, showMissing } from "./api.js";

const view = document.getElementById("view-accounts");
const editForm = document.getElementById("account-edit-form");
const addForm = document.getElementById("account-add-form");
const adminBit = 8;
const bits = [
  { value: 1, name: () => T("목록") },
  { value: 2, name: () => T("다운로드") },
  { value: 4, name: () => T("업로드") },
  { value: adminBit, name: () => T("관리") },
];
let accounts = [];

function displayName(name) {
  return accounts.find((account) => account.name === name)?.displayName ?? name;
}

function accountItem(account) {
  const button = el(
    "button",
    { type: "button", class: "account", onclick: () => selectAccount(account) },
    account.displayName,
  );
  return el("li", { dataset: { name: account.name } }, button);
}

function selectAccount(account) {
  clearErrors(editForm);
  editForm.hidden = account.anonymous;
  for (const item of document.querySelectorAll("#accounts-list li")) {
    item.classList.toggle("is-selected", item.dataset.name === account.name);
  }
  if (account.anonymous) return;
  document.getElementById("account-edit-title").textContent = account.displayName;
  editForm.elements.name.value = account.name;
  editForm.elements.newName.value = account.name;
  editForm.elements.password.value = "";
}

async function setRights(box, account, mount) {
  const cell = box.closest("td");
  let rights = 0;
  for (const other of cell.querySelectorAll("input")) if (other.checked) rights |= Number(other.value);
  const fields = { account, mount, rights };
  if (box.checked && Number(box.value) === adminBit) {
    if (!window.confirm(T("%s 에게 %s 의 관리 권한을 줄까요? 그 마운트의 파일과 폴더를 지울 수 있게 됩니다.", displayName(account), mount))) {
      box.checked = false;
      return;
    }
    fields.confirmAdmin = 1;
  }
  try {
    await post("rights/set", fields);
  } catch (error) {
    box.checked = !box.checked;
    notify(error.message, true);
  }
}

function rightsCell(account, mount, value) {
  const boxes = bits.map(({ value: bit, name }) => {
    const id = `right-${account}-${mount}-${bit}`.replace(/[^A-Za-z0-9_-]/g, (c) => `_${c.charCodeAt(0)}`);
    const box = el("input", { type: "checkbox", id, value: String(bit), checked: (value & bit) !== 0 });
    box.addEventListener("change", () => setRights(box, account, mount));
    return el("span", { class: "right" }, box, el("label", { for: id }, name()));
  });
  return el("td", { dataset: { account, mount }, "aria-label": T("%s 의 %s 권한", displayName(account), mount) }, boxes);
}

function renderMatrix(rights) {
  const head = el("tr", {}, el("th", { scope: "col" }, T("계정")), rights.mounts.map((mount) => el("th", { scope: "col" }, mount)));
  const rows = rights.accounts.map((account) =>
    el(
      "tr",
      { dataset: { account } },
      el("th", { scope: "row" }, displayName(account)),
      rights.mounts.map((mount) => rightsCell(account, mount, rights.rights[account]?.[mount] ?? 3)),
    ),
  );
  document.getElementById("rights-matrix").replaceChildren(el("thead", {}, head), el("tbody", {}, rows));
}

export async function show() {
  let rights;
  try {
    accounts = await getJson("accounts");
    rights = await getJson("rights");
  } catch (error) {
    if (isMissing(error)) return showMissing(view);
    throw error;
  }
  document.getElementById("accounts-list").replaceChildren(...accounts.map(accountItem));
  renderMatrix(rights);
  const selected = accounts.find((account) => account.name === editForm.elements.name.value);
  editForm.hidden = !selected;
}

async function change(form, endpoint, fields) {
  clearErrors(form);
  await post(endpoint, fields);
  await show();
}

export function init() {
  addForm.addEventListener("submit", (event) => {
    event.preventDefault();
    guarded(async () => {
      await change(addForm, "accounts/add", {
        name: addForm.elements.name.value,
        password: addForm.elements.password.value,
      });
      addForm.reset();
    }, addForm)();
  });
  const name = () => editForm.elements.name.value;
  editForm.addEventListener("submit", (event) => event.preventDefault());
  document.getElementById("account-rename").addEventListener(
    "click",
    guarded(async () => {
      const newName = editForm.elements.newName.value;
      await change(editForm, "accounts/rename", { name: name(), newName });
      editForm.elements.name.value = newName;
    }, editForm),
  );
  document.getElementById("account-password-change").addEventListener(
    "click",
    guarded(async () => {
      await change(editForm, "accounts/password", { name: name(), password: editForm.elements.password.value });
      editForm.elements.password.value = "";
      notify(T("저장했습니다."));
    }, editForm),
  );
  document.getElementById("account-remove").addEventListener(
    "click",
    guarded(async () => {
      if (!window.confirm(T("%s 계정을 지울까요?", name()))) return;
      await change(editForm, "accounts/remove", { name: name() });
      editForm.hidden = true;
    }, editForm),
  );
}
