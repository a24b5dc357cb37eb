// The first-run wizard as a new owner meets it: the real program on a home it makes in
// this run, its console in headless Debian Chromium. The owner switches the language,
// keeps the port, picks the folder with the picker (its name is proposed), lets anonymous
// visitors upload but not list, skips the account and ends on Home with the visitors'
// address; a visitor then uses the new share, and the wizard is not offered again.
//
// Environment: LUMIDROP_BINARY (the program).

import fs from "node:fs";
import os from "node:os";
import path from "node:path";

import { check, openConsole, runBrowserTest } from "./harness.mjs";

const scratch = fs.mkdtempSync(path.join(os.tmpdir(), "lumidrop-wizard-"));
const home = path.join(scratch, "home");
const photos = path.join(scratch, "folders", "holiday photos");
fs.mkdirSync(photos, { recursive: true });
fs.writeFileSync(path.join(photos, "beach.txt"), "sand and sea");

const args = ["--console-port", "0"];
await runBrowserTest({ home, scratch, args }, async ({ page, base, consoleUrl }) => {
  const progress = () => page.textContent("#wizard-progress");
  const { api } = await openConsole(page, consoleUrl);
  check(!(await page.isHidden("#view-wizard")), "the wizard opens instead of Home");
  check(await page.isHidden("#view-home"), "Home waits for the wizard");
  check(await page.isHidden(".top nav"), "no tabs during the wizard");

  // Language: Korean first, then English, each switching the wizard at once.
  for (const [file, next, step] of [["", "다음", "단계 1 / 5"], ["English.wul", "Next", "Step 1 of 5"]]) {
    await page.selectOption("#wizard-language", file);
    await page.waitForFunction((t) => document.getElementById("wizard-next").textContent === t, next);
    check((await progress()) === step, `progress in ${file || "Korean"}: ${await progress()}`);
  }
  await page.click("#wizard-next");

  // Port: the one it listens on, kept.
  const port = new URL(base).port;
  check((await page.inputValue("#wizard-port")) === port, "the listening port is proposed");
  await page.click("#wizard-next");

  // Folder: nothing chosen is refused on its step; then the picker, which proposes a name.
  await page.click("#wizard-next");
  await page.waitForSelector("#wizard-path[aria-invalid=true]");
  await page.click("#wizard-browse");
  await page.waitForSelector("#wizard-picker:not([hidden])");
  for (const folder of [...path.dirname(photos).split("/").filter(Boolean), "holiday photos"]) {
    await page.click(`#wizard-picker-folders button:text-is("${folder}")`);
  }
  await page.waitForFunction((p) => document.getElementById("wizard-picker-path").textContent === p, photos);
  await page.click("#wizard-picker-choose");
  check((await page.inputValue("#wizard-path")) === photos, "the picked folder fills the path");
  check((await page.inputValue("#wizard-name")) === "holiday photos", "the name is proposed");
  await page.fill("#wizard-name", "holiday");
  await page.click("#wizard-next");

  // Visitors: listing and downloading are on by default; upload on, listing off.
  const ticked = await Promise.all(["list", "download", "upload"].map((n) => page.isChecked(`#wizard-${n}`)));
  check(ticked.join() === "true,true,false", `list, download, upload by default: ${ticked}`);
  await page.uncheck("#wizard-list");
  await page.check("#wizard-upload");
  await page.click("#wizard-next");

  // Account: mismatched passwords are refused in place; then no account at all.
  await page.fill("#wizard-user", "me");
  await page.fill("#wizard-password", "one");
  await page.fill("#wizard-password2", "two");
  await page.click("#wizard-finish");
  await page.waitForSelector("#wizard-password2[aria-invalid=true]");
  await page.fill("#wizard-user", "");
  await page.click("#wizard-finish");

  // Home, with the visitors' address.
  await page.waitForSelector("body[data-ready=true]");
  await page.waitForSelector("#view-home:not([hidden])");
  await page.waitForFunction(() => document.getElementById("home-address").textContent.includes("http://"));
  const shown = await page.textContent("#home-address");
  check(shown.endsWith(`:${port}/`), `visitors' address on Home: ${shown}`);
  check(!(await page.isHidden(".top nav")), "the tabs are back");

  // A visitor downloads from the new share, cannot list it, and may upload to it.
  const file = await page.request.get(`${base}/holiday/beach.txt`);
  check(file.status() === 200 && (await file.text()) === "sand and sea", `download: ${file.status()}`);
  const listing = await page.request.get(`${base}/holiday/`);
  check(listing.status() !== 200, `listing refused: ${listing.status()}`);
  const rights = await api("rights");
  check(rights.rights[".anonymous"].holiday === 6, `anonymous rights: ${JSON.stringify(rights)}`);
  check((await api("setup")).due === false, "the wizard is done");

  // Opening the console again goes straight to Home.
  await page.reload();
  await page.waitForSelector("body[data-ready=true]");
  check(await page.isHidden("#view-wizard"), "no wizard the second time");
});
