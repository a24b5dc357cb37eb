// Settings: every control saves itself when it changes, one setting per change, and shows
// a refusal beside itself. The language and skin lists, the network cards and the
// resulting address come from the program; a new language retranslates the page at once.

import { T, clearErrors, el, getJson, guarded, loadTexts, notify, post, showError, translatePage } from "./api.js";

const view = document.getElementById("view-settings");
const addressKeys = ["getPublicIP", "useHostName", "HostName", "preferredLancardAddress"];
let settings = {};
let cards = [];
let addressTimer = 0;

function controlsOf(name) {
  return view.querySelectorAll(`[name="${CSS.escape(name)}"]`);
}

// Puts the saved values into the controls, except into the one the owner is typing in. A
// refusal shown earlier goes with the value it was about.
function fill() {
  for (const form of view.querySelectorAll("form")) clearErrors(form);
  for (const [name, value] of Object.entries(settings)) {
    for (const control of controlsOf(name)) {
      if (control === document.activeElement && control.type !== "checkbox" && control.type !== "radio") continue;
      if (control.type === "checkbox") control.checked = value;
      else if (control.type === "radio") control.checked = control.value === String(value);
      else control.value = String(value);
    }
  }
  document.getElementById("settings-host").disabled = !settings.useHostName;
}

function fillCards() {
  const select = document.getElementById("settings-lancard");
  const chosen = settings.preferredLancardAddress ?? "";
  // A saved address this machine no longer has still shows, so the list tells the truth.
  const choices = cards.includes(chosen) || chosen === "" ? cards : [...cards, chosen];
  select.replaceChildren(
    el("option", { value: "" }, T("자동 (첫 번째 주소)")),
    ...choices.map((address) => el("option", { value: address }, address)),
  );
  select.value = chosen;
}

export function showAddress(address, pending = false) {
  document.getElementById("settings-address-now").textContent = pending ? T("알아내는 중…") : address;
}

async function lookAtAddress() {
  const answer = await getJson("address");
  cards = answer.addresses;
  showAddress(answer.address, answer.pending);
  return answer.pending;
}

// Without the event stream the new address would never show: look until it is known.
function followAddress() {
  clearInterval(addressTimer);
  let looks = 0;
  addressTimer = setInterval(async () => {
    looks += 1;
    const pending = await lookAtAddress().catch(() => false);
    if (!pending || looks > 40) clearInterval(addressTimer);
  }, 500);
}

function languageRow(language, chosen) {
  const id = `settings-language-${language.file || "built-in"}`;
  const [name, ...about] = language.descriptions;
  return el(
    "li",
    {},
    el("input", { type: "radio", id, name: "uiLanguageFile", value: language.file, checked: language.file === chosen }),
    el(
      "label",
      { for: id },
      el("strong", {}, name),
      " ",
      el("span", { class: "hint" }, about.filter(Boolean).join(" · ")),
      " ",
      language.builtIn ? el("span", { class: "hint" }, T("(내장)")) : el("span", { class: "file" }, language.file),
    ),
  );
}

function skinRow(skin, chosen) {
  const id = `settings-skin-${skin.name}`;
  const isChosen = skin.name === chosen || (chosen === "" && skin.builtIn);
  return el(
    "li",
    {},
    el("input", { type: "radio", id, name: "defaultSkin", value: skin.name, checked: isChosen }),
    el("label", { for: id }, skin.builtIn ? T("기본 스킨 (내장)") : skin.name),
    " ",
    skin.preview
      ? el("a", { href: skin.preview, target: "_blank", rel: "noopener", class: "preview" }, T("미리 보기"))
      : null,
  );
}

async function showLists() {
  const [languages, skins] = await Promise.all([getJson("languages"), getJson("skins")]);
  document
    .getElementById("settings-languages")
    .replaceChildren(...languages.languages.map((language) => languageRow(language, languages.chosen)));
  document.getElementById("settings-skins").replaceChildren(...skins.skins.map((skin) => skinRow(skin, skins.chosen)));
}

async function showNewer() {
  const status = await getJson("status");
  const newer = document.getElementById("settings-newer");
  newer.hidden = !(status.newerRevision > 0);
  newer.textContent = status.newerRevision > 0 ? T("새 버전(r%d)이 나왔습니다.", status.newerRevision) : "";
}

export async function show() {
  settings = (await getJson("settings")).settings;
  await lookAtAddress();
  fillCards();
  fill();
  await Promise.all([showLists(), showNewer()]);
}

async function save(form, control) {
  clearErrors(form);
  const value = control.type === "checkbox" ? (control.checked ? 1 : 0) : control.value;
  try {
    settings = (await post("settings/set", { [control.name]: value })).settings;
  } catch (error) {
    showError(form, error);
    return;
  }
  if (control.name === "uiLanguageFile") {
    // The program has loaded the language already; the page follows without a reload.
    await loadTexts();
    translatePage();
    fillCards();
  }
  if (addressKeys.includes(control.name)) {
    showAddress("", true);
    followAddress();
  }
  fill();
  await Promise.all([showLists(), showNewer()]);
  notify(T("저장했습니다."));
}

export function init() {
  for (const form of view.querySelectorAll("form")) {
    form.addEventListener("submit", (event) => event.preventDefault());
    form.addEventListener("change", (event) => {
      if (event.target.name) guarded(() => save(form, event.target), form)();
    });
  }
}
