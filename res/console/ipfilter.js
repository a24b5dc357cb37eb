// IP filter: ordered rules, the first that matches a visitor's address deciding. The rule
// field says what is wrong while the owner types, by the same test the program applies.

import { T, clearErrors, el, getJson, guarded, isMissing, post, showError, showMissing } from "./api.js";

const view = document.getElementById("view-ipfilter");
const form = document.getElementById("ipfilter-form");
let rules = [];

// What is wrong with a rule, or "" when the program will take it: four parts split by
// three dots, only digits, dots and "*" (one or more characters, dots included).
export function ruleProblem(text) {
  const rule = text.replace(/^[\r\n\t ]+|[\r\n\t ]+$/g, "");
  if (rule === "") return T("규칙을 입력하세요.");
  if (!/^[0-9.*]+$/.test(rule)) return T("숫자, 점, * 만 쓸 수 있습니다.");
  if (rule.startsWith(".") || rule.endsWith(".")) return T("점으로 시작하거나 끝날 수 없습니다.");
  if (rule.split(".").length !== 4) return T("점이 꼭 세 개 있어야 합니다.");
  return "";
}

// While typing, an empty field is no fault yet; on sending it is.
function validate(sending = false) {
  const field = form.elements.rule;
  const problem = ruleProblem(field.value);
  field.setCustomValidity(problem);
  clearErrors(form);
  if (problem && (sending || field.value !== "")) showError(form, { field: "rule", message: problem });
  return problem === "";
}

function actionText(action) {
  return action === "allow" ? T("허용") : T("차단");
}

function row(rule, index) {
  const button = (text, handler, disabled = false) =>
    el("button", { type: "button", disabled, onclick: guarded(handler, form) }, text);
  return el(
    "tr",
    { dataset: { index: String(index) } },
    el("td", {}, String(index + 1)),
    el("td", { class: "rule" }, rule.rule),
    el("td", { class: `action is-${rule.action}` }, actionText(rule.action)),
    el(
      "td",
      { class: "actions" },
      button(T("위로"), () => move(index, "up"), index === 0),
      button(T("아래로"), () => move(index, "down"), index === rules.length - 1),
      button(T("편집"), () => edit(index)),
      button(T("삭제"), () => remove(index)),
    ),
  );
}

export async function show() {
  try {
    rules = await getJson("ipfilter");
  } catch (error) {
    if (isMissing(error)) return showMissing(view);
    throw error;
  }
  document.getElementById("ipfilter-rows").replaceChildren(...rules.map(row));
  document.getElementById("ipfilter-empty").hidden = rules.length > 0;
}

async function move(index, direction) {
  await post("ipfilter/move", { index, direction });
  await show();
}

async function remove(index) {
  if (!window.confirm(T("%s 규칙을 지울까요?", rules[index].rule))) return;
  await post("ipfilter/remove", { index });
  await show();
}

function edit(index) {
  form.elements.index.value = String(index);
  form.elements.rule.value = rules[index].rule;
  form.elements.action.value = rules[index].action;
  document.getElementById("ipfilter-form-title").textContent = T("규칙 편집");
  document.getElementById("ipfilter-submit").textContent = T("규칙 저장");
  document.getElementById("ipfilter-cancel").hidden = false;
  form.elements.rule.focus();
}

function endEditing() {
  form.reset();
  form.elements.index.value = "";
  clearErrors(form);
  document.getElementById("ipfilter-form-title").textContent = T("규칙 추가");
  document.getElementById("ipfilter-submit").textContent = T("규칙 추가");
  document.getElementById("ipfilter-cancel").hidden = true;
}

async function submit() {
  if (!validate(true)) return;
  const fields = { rule: form.elements.rule.value.trim(), action: form.elements.action.value };
  const index = form.elements.index.value;
  if (index !== "") await post("ipfilter/edit", { index, ...fields });
  else await post("ipfilter/add", fields);
  endEditing();
  await show();
}

export function init() {
  form.elements.rule.addEventListener("input", () => validate());
  document.getElementById("ipfilter-cancel").addEventListener("click", endEditing);
  form.addEventListener("submit", (event) => {
    event.preventDefault();
    guarded(submit, form)();
  });
}
