// The owner's console: loads the owner's texts, shows one view at a time after the
// address's #fragment, and feeds the live views from the program's events.

import { loadTexts, notify, translatePage } from "./api.js";
import * as accounts from "./accounts.js";
import * as home from "./home.js";
import * as ipfilter from "./ipfilter.js";
import * as limits from "./limits.js";
import { startLive } from "./live.js";
import * as log from "./log.js";
import * as mounts from "./mounts.js";
import * as plugins from "./plugins.js";
import * as settings from "./settings.js";
import * as transfers from "./transfers.js";
import * as wizard from "./wizard.js";

const views = { home, mounts, accounts, ipfilter, limits, settings, transfers, log, plugins };
// Which views show what a "settings" event names as changed.
const shownBy = {
  status: "home",
  server: "home",
  mounts: "mounts",
  accounts: "accounts",
  rights: "accounts",
  ipfilter: "ipfilter",
  limits: "limits",
  settings: "settings",
  plugins: "plugins",
};

function currentName() {
  const name = location.hash.slice(1);
  return name in views ? name : "home";
}

function refresh(name) {
  const shown = views[name].show?.();
  if (shown instanceof Promise) shown.catch((error) => notify(error.message, true));
}

function showView() {
  const name = currentName();
  for (const key of Object.keys(views)) {
    document.getElementById(`view-${key}`).hidden = key !== name;
  }
  for (const link of document.querySelectorAll(".tabs a")) {
    if (link.hash === `#${name}`) link.setAttribute("aria-current", "page");
    else link.removeAttribute("aria-current");
  }
  refresh(name);
}

async function onSettings(what) {
  // Another console may have chosen a new language: this page speaks it too.
  if (what === "settings/set") {
    await loadTexts();
    translatePage();
  }
  const name = shownBy[what.split("/")[0]];
  // Mounts also appear in the rights matrix; a view out of sight is reloaded when shown.
  for (const affected of what.startsWith("mounts") ? [name, "accounts"] : [name]) {
    if (affected && affected === currentName()) refresh(affected);
  }
}

async function start() {
  await loadTexts();
  translatePage();
  if (await wizard.isDue()) {
    wizard.run();
    document.body.dataset.ready = "true";
    return;
  }
  for (const view of Object.values(views)) view.init?.();
  window.addEventListener("hashchange", showView);
  showView();
  // Mount links are made from the visitors' address, which Home knows.
  if (currentName() !== "home") home.refresh();
  await startLive({
    transfers: transfers.replaceAll,
    transfer: transfers.upsert,
    transferEnd: transfers.remove,
    log: log.append,
    settings: (what) => onSettings(what).catch((error) => notify(error.message, true)),
    address: settings.showAddress,
  });
  document.body.dataset.ready = "true";
}

start().catch((error) => notify(error.message, true));
