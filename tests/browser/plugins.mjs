// Plug-ins as a visitor and the owner meet them in headless Chromium: the listing's action
// plug-in takes the ticked files (names with blanks and "&" arrive whole, one per line),
// and the console's Plug-ins page lists the libraries and reloads them.
//
// Environment: LUMIDROP_BINARY (the program), LUMIDROP_BUILD_DIR (the probe plug-ins).

import fs from "node:fs";
import os from "node:os";
import path from "node:path";

import { check, runBrowserTest } from "./harness.mjs";

const plugins = path.join(process.env.LUMIDROP_BUILD_DIR, "probe-plugins");
const scratch = fs.mkdtempSync(path.join(os.tmpdir(), "lumidrop-plugins-"));
const home = path.join(scratch, "home");
const shared = path.join(scratch, "shared");
for (const folder of [path.join(home, "Plugin"), shared]) fs.mkdirSync(folder, { recursive: true });
for (const name of ["a b.txt", "c&d.txt", "e.txt"]) fs.writeFileSync(path.join(shared, name), name);
fs.copyFileSync(path.join(plugins, "probe_action.so"), path.join(home, "Plugin", "probe_action.so"));
fs.writeFileSync(
  path.join(home, "mount.ini"),
  `uiLanguageFile=English.wul\r\nconsolePort=0\r\nmounts+=docs|${shared}|x|yes|x|no\r\n`,
);

// The shipped plug-ins are offered beside the probe.
const probeButton = 'form.plugin-action:has(input[value="probe_action"]) button';

await runBrowserTest({ home, scratch }, async ({ page, base, consoleUrl }) => {
  await page.goto(`${base}/docs/`);
  const boxes = page.locator("tbody.entries input.plugin-pick");
  check((await boxes.count()) === 3, "every file row has a box");
  await boxes.nth(0).check();
  await boxes.nth(1).check();
  await Promise.all([page.waitForURL(/action=Plugin/), page.click(probeButton)]);
  const echo = await page.textContent("body");
  check(echo.includes("selected=a b.txt\nc&d.txt\n"), `the ticked names arrive: ${echo}`);
  check(echo.includes("path=docs/\n"), "the plug-in runs on the listed folder");

  // Nothing ticked: the plug-in gets the folder, without a selection.
  await page.goto(`${base}/docs/`);
  await Promise.all([page.waitForURL(/action=Plugin/), page.click(probeButton)]);
  check(!page.url().includes("selectedFiles"), `no empty selection is sent: ${page.url()}`);

  await page.goto(await consoleUrl);
  await page.click('.tabs a[href="#plugins"]');
  const row = page.locator("#plugins-rows tr", { hasText: "probe_action" });
  await row.waitFor();
  check((await row.textContent()).includes("In use"), "the console shows the plug-in in use");
  // The shipped plug-ins go too, until the next start puts them back.
  for (const name of fs.readdirSync(path.join(home, "Plugin"))) {
    if (name.endsWith(".so")) fs.rmSync(path.join(home, "Plugin", name));
  }
  await page.click("#plugins-reload");
  await page.waitForSelector("#plugins-empty:not([hidden])");
});
