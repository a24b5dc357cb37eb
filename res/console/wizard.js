// The first-run wizard, shown instead of the console on a home the program has just made:
// language, visitors' port, the folder to share and its name, what anonymous visitors may
// do, and an optional account of the owner's. Finishing or skipping ends on Home, and the
// program never offers the wizard again.

import { T, clearErrors, el, getJson, guarded, loadTexts, post, showError, translatePage } from "./api.js";
import { folderPicker } from "./picker.js";

const view = document.getElementById("view-wizard");
const form = document.getElementById("wizard-form");
const steps = [...form.querySelectorAll("fieldset[data-step]")];
// The step that holds each field the program may refuse.
const stepOf = { language: 0, port: 1, path: 2, name: 2, anonymousRights: 3, user: 4, password: 4, password2: 4 };
let setup = null;
let step = 0;
let proposedName = "";

// Whether the wizard is due; a build without it, or any failure, leaves the console as it is.
export async function isDue() {
  try {
    setup = await getJson("setup");
    return setup.due === true;
  } catch {
    return false;
  }
}

function render() {
  steps.forEach((fieldset, index) => {
    fieldset.hidden = index !== step;
  });
  const last = step === steps.length - 1;
  document.getElementById("wizard-back").disabled = step === 0;
  document.getElementById("wizard-next").hidden = last;
  document.getElementById("wizard-finish").hidden = !last;
  document.getElementById("wizard-progress").textContent = T("단계 %s / %s", step + 1, steps.length);
}

function goTo(index) {
  clearErrors(form);
  step = index;
  render();
  steps[step].querySelector("input:not([type=hidden]), select")?.focus();
}

async function chooseLanguage() {
  await post("setup/language", { language: form.elements.language.value });
  await loadTexts();
  translatePage();
  render();
}

// The port is taken at once, so a port another program holds is refused on its own step.
async function applyPort() {
  const port = Number(form.elements.port.value);
  const status = await getJson("status");
  if (status.listening && status.port === port) return;
  await post("server/port", { port: form.elements.port.value });
  if (!status.listening) await post("server/start");
}

function lastSegment(path) {
  return path.replace(/\/+$/, "").split("/").pop() ?? "";
}

// A name the owner has not typed follows the folder.
function pathChosen(path) {
  form.elements.path.value = path;
  const name = form.elements.name;
  if (!name.value || name.value === proposedName) {
    proposedName = lastSegment(path);
    name.value = proposedName;
  }
}

function rights() {
  return (
    (form.elements.rightList.checked ? 1 : 0) +
    (form.elements.rightDownload.checked ? 2 : 0) +
    (form.elements.rightUpload.checked ? 4 : 0)
  );
}

async function finish() {
  const user = form.elements.user.value.trim();
  if (user && form.elements.password.value !== form.elements.password2.value) {
    throw Object.assign(new Error(T("두 비밀번호가 다릅니다.")), { field: "password2" });
  }
  await post("setup/finish", {
    name: form.elements.name.value,
    path: form.elements.path.value,
    anonymousRights: rights(),
    user,
    password: user ? form.elements.password.value : "",
  });
  endOnHome();
}

function endOnHome() {
  location.hash = "#home";
  location.reload();
}

async function next() {
  if (step === 1) await applyPort();
  if (step === 2 && !form.elements.path.value.trim()) {
    throw Object.assign(new Error(T("공유할 폴더를 고르세요.")), { field: "path" });
  }
  if (step < steps.length - 1) goTo(step + 1);
  else await finish();
}

async function submit(event) {
  event.preventDefault();
  try {
    await next();
  } catch (error) {
    if (error.field in stepOf && stepOf[error.field] !== step) goTo(stepOf[error.field]);
    showError(form, error);
  }
}

// Takes the page over: no tabs, no other view, until the owner finishes or skips.
export function run() {
  document.querySelector(".top nav").hidden = true;
  for (const section of document.querySelectorAll("main > .view")) section.hidden = section !== view;
  const languages = form.elements.language;
  languages.replaceChildren(
    ...setup.languages.map((language) =>
      el("option", { value: language.file, selected: language.file === setup.language }, language.name),
    ),
  );
  languages.addEventListener("change", guarded(chooseLanguage, form));
  form.elements.port.value = setup.port;
  const picker = folderPicker("wizard-picker", form, pathChosen);
  document.getElementById("wizard-browse").addEventListener(
    "click",
    guarded(() => picker.browse(form.elements.path.value.trim() || "/"), form),
  );
  form.elements.path.addEventListener("change", () => pathChosen(form.elements.path.value.trim()));
  document.getElementById("wizard-back").addEventListener("click", () => goTo(Math.max(0, step - 1)));
  form.addEventListener("submit", submit);
  document.getElementById("wizard-skip").addEventListener(
    "click",
    guarded(async (event) => {
      event.preventDefault();
      await post("setup/finish", { skip: 1 });
      endOnHome();
    }),
  );
  render();
}
