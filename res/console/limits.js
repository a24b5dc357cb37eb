// Limits: the two total speeds (KiB/s; -1 for none) and the two download connection
// counts, each with the switch that turns it on.

import { T, clearErrors, getJson, guarded, notify, post } from "./api.js";

const form = document.getElementById("limits-form");
const speeds = ["totalUploadSpeedLimit", "totalDownloadSpeedLimit"];
const counts = [
  ["useDownloadConnectionLimit", "downloadConnectionLimit"],
  ["usePerIPDownloadConnectionLimit", "perIPdownloadConnectionLimit"],
];

function speedSwitch(name) {
  return form.querySelector(`[data-switch="${name}"]`);
}

// A value field is only editable while its switch is on, so what is saved is what shows.
function follow() {
  for (const name of speeds) form.elements[name].disabled = !speedSwitch(name).checked;
  for (const [use, count] of counts) form.elements[count].disabled = !form.elements[use].checked;
}

export async function show() {
  const limits = await getJson("limits");
  for (const name of speeds) {
    const on = limits[name] >= 0;
    speedSwitch(name).checked = on;
    form.elements[name].value = on ? limits[name] : "";
  }
  for (const [use, count] of counts) {
    form.elements[use].checked = limits[use];
    form.elements[count].value = limits[count];
  }
  follow();
}

async function save() {
  clearErrors(form);
  const fields = {};
  for (const name of speeds) fields[name] = speedSwitch(name).checked ? form.elements[name].value : -1;
  for (const [use, count] of counts) {
    fields[use] = form.elements[use].checked ? 1 : 0;
    fields[count] = form.elements[count].value;
  }
  await post("limits/set", fields);
  await show();
  notify(T("저장했습니다."));
}

export function init() {
  form.addEventListener("change", follow);
  form.addEventListener("submit", (event) => {
    event.preventDefault();
    guarded(save, form)();
  });
}
