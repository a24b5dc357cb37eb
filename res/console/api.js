// What every view of the console shares: the owner's texts, the calls to the console's
// interface, and the showing of refusals beside the field they name.

let texts = {};

// The translations come from the program, so the pages speak the language the owner chose
// for it; a key the table lacks shows as itself rather than as nothing.
export async function loadTexts() {
  try {
    const response = await fetch("/api/v1/texts", { headers: { Accept: "application/json" } });
    if (response.ok) texts = await response.json();
  } catch {
    texts = {};
  }
}

// The translation of `key` with each "%s" or "%d" replaced by the next argument in turn.
export function T(key, ...args) {
  let text = texts[key] ?? key;
  for (const arg of args) text = text.replace(/%[sd]/, () => String(arg));
  return text;
}

// Puts the translation into every element of the page marked with a key.
export function translatePage(root = document) {
  for (const element of root.querySelectorAll("[data-t]")) {
    element.textContent = T(element.dataset.t);
  }
}

export class ApiError extends Error {
  constructor(status, field, message) {
    super(message);
    this.status = status;
    this.field = field;
  }
}

// An endpoint that this build of the program does not have answers 404 for the endpoint
// itself; a 404 naming a field is a refusal about that field.
export function isMissing(error) {
  return error instanceof ApiError && error.status === 404 && !error.field;
}

async function answer(response) {
  let body = null;
  try {
    body = await response.json();
  } catch {
    body = null;
  }
  if (!response.ok) {
    const error = body && body.error ? body.error : {};
    throw new ApiError(response.status, error.field ?? "", error.message ?? response.statusText);
  }
  return body;
}

async function call(endpoint, options) {
  let response;
  try {
    response = await fetch(`/api/v1/${endpoint}`, options);
  } catch {
    throw new ApiError(0, "", T("프로그램에 연결할 수 없습니다."));
  }
  return answer(response);
}

export function getJson(endpoint) {
  return call(endpoint, { headers: { Accept: "application/json" } });
}

// Every change goes as a form with the header that no other site's page can add.
export function post(endpoint, fields = {}) {
  const body = Object.entries(fields)
    .map(([name, value]) => `${encodeURIComponent(name)}=${encodeURIComponent(String(value))}`)
    .join("&");
  return call(endpoint, {
    method: "POST",
    headers: {
      "Content-Type": "application/x-www-form-urlencoded",
      "X-Lumidrop-Console": "1",
      Accept: "application/json",
    },
    body,
  });
}

// Builds an element; strings become text nodes, so nothing a visitor named (a file, an
// account) is ever read as markup.
export function el(tag, properties = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(properties)) {
    if (value === undefined || value === null || value === false) continue;
    if (name === "class") element.className = value;
    else if (name === "dataset") Object.assign(element.dataset, value);
    else if (name.startsWith("on")) element.addEventListener(name.slice(2), value);
    else if (name in element && typeof value !== "string") element[name] = value;
    else element.setAttribute(name, value === true ? "" : value);
  }
  for (const child of children.flat()) {
    if (child === null || child === undefined || child === false) continue;
    element.append(child instanceof Node ? child : document.createTextNode(String(child)));
  }
  return element;
}

let noticeTimer = 0;

// A short message for the whole page, for what belongs to no form.
export function notify(message, isError = false) {
  const notice = document.getElementById("notice");
  notice.textContent = message;
  notice.classList.toggle("is-error", isError);
  notice.hidden = false;
  clearTimeout(noticeTimer);
  noticeTimer = setTimeout(() => {
    notice.hidden = true;
  }, isError ? 8000 : 3000);
}

export function clearErrors(form) {
  for (const message of form.querySelectorAll(".field-error")) message.remove();
  for (const field of form.querySelectorAll("[aria-invalid]")) field.removeAttribute("aria-invalid");
  const general = form.querySelector(".form-error");
  if (general) general.hidden = true;
}

// Shows a refusal beside the field it names, or at the head of the form when it names
// none the form has.
export function showError(form, error) {
  clearErrors(form);
  const message = error.message ?? String(error);
  const field = error.field ? form.querySelector(`[name="${CSS.escape(error.field)}"]`) : null;
  if (field && field.type !== "hidden") {
    const id = `${field.id || field.name}-error`;
    field.setAttribute("aria-invalid", "true");
    field.setAttribute("aria-describedby", id);
    field.closest(".field, fieldset, p")?.append(el("span", { class: "field-error", id }, message));
    field.focus();
    return;
  }
  const general = form.querySelector(".form-error");
  if (general) {
    general.textContent = message;
    general.hidden = false;
  } else {
    notify(message, true);
  }
}

// Marks a view whose endpoint this build lacks, instead of leaving it empty.
export function showMissing(view) {
  if (view.querySelector(".missing")) return;
  view.append(el("p", { class: "missing" }, T("이 기능은 이 빌드에 아직 없습니다.")));
}

// Runs a handler of the page so that a refusal never escapes as an uncaught error.
export function guarded(handler, form = null) {
  return async (event) => {
    try {
      await handler(event);
    } catch (error) {
      if (form) showError(form, error);
      else notify(error.message, true);
    }
  };
}
