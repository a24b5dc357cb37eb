// Managing a folder as a visitor with the administration right, in headless Chromium:
// ticks with a shift-click range, a rename, a new folder and a delete, each without the page
// being left; then the owner finds the deleted files in the console's trash and empties it.
// Names travel as bytes: one holding "+" and "%" is renamed, one that is not UTF-8 deleted.
//
// Environment: LUMIDROP_BINARY (the program).

import fs from "node:fs";
import path from "node:path";

import { check, openConsole, runBrowserTest, scratchHome, showView } from "./harness.mjs";

const files = { "shared/folder/": "" };
for (const name of ["a.txt", "b.txt", "c.txt", "x+y%41.txt"]) files[`shared/${name}`] = name;
const setup = scratchHome({
  mounts: { docs: "shared" },
  settings: ["consolePort=0", "authorities+=.anonymous|docs|15"],
  files,
});
const shared = setup.at("shared");
const badName = Buffer.from("bad\xff.txt", "latin1");
fs.writeFileSync(Buffer.concat([Buffer.from(`${shared}/`), badName]), "bad");

await runBrowserTest(setup, async ({ page, base, consoleUrl }) => {
  await page.goto(`${base}/docs/`);
  const box = (name) => page.locator(`tbody.entries input.plugin-pick[value="${name}"]`);
  const row = (name) => page.locator("tbody.entries a.entry-name", { hasText: name });
  const status = page.locator(".admin-status");
  await box("folder").waitFor();
  check(!(await page.isVisible("#lumi-admin-names")), "the typed-in names are for pages without scripts");
  await page.evaluate(() => { window.stayed = true; });

  // A shift-click ticks the whole range, folders included.
  await box("folder").click();
  await box("b.txt").click({ modifiers: ["Shift"] });
  check(await box("a.txt").isChecked(), "the range between the two clicks is ticked");
  check(!(await box("c.txt").isChecked()), "the range ends at the shift-click");

  await page.click(".admin-rename");
  await status.filter({ hasText: "Select exactly one" }).waitFor();
  for (const name of ["folder", "a.txt", "b.txt"]) await box(name).uncheck();
  await box("x+y%41.txt").check();
  page.once("dialog", (dialog) => dialog.accept("renamed.txt"));
  await page.click(".admin-rename");
  await row("renamed.txt").waitFor();
  check(fs.readFileSync(path.join(shared, "renamed.txt"), "utf8") === "x+y%41.txt", "renamed on disk");

  page.once("dialog", (dialog) => dialog.accept("made"));
  await page.click(".admin-mkdir");
  await row("made").waitFor();
  check(fs.statSync(path.join(shared, "made")).isDirectory(), "the new folder exists");

  // The boxes come back with the fresh rows.
  await box("renamed.txt").check();
  await box("c.txt").check();
  await box("bad\ufffd.txt").check();
  page.once("dialog", (dialog) => dialog.accept());
  await page.click(".admin-delete");
  await status.filter({ hasText: "Moved 3 to the trash." }).waitFor();
  await row("c.txt").waitFor({ state: "detached" });
  check((await row("renamed.txt").count()) === 0, "the deleted rows are gone");
  const trashFolder = path.join(shared, ".lumidrop-trash");
  const trashed = fs.readdirSync(trashFolder)
    .flatMap((stamp) => fs.readdirSync(path.join(trashFolder, stamp), { encoding: "buffer" }));
  check(trashed.some((name) => name.equals(badName)), "the name that is not UTF-8 is trashed as it was");
  check(await page.evaluate(() => window.stayed === true), "the page was never left");

  await openConsole(page, consoleUrl);
  await showView(page, "mounts");
  const trash = page.locator('#trash-rows li[data-name="docs"]');
  await trash.filter({ hasText: "Trash: 3 files" }).waitFor();
  page.once("dialog", (dialog) => dialog.accept());
  await trash.locator("button").click();
  await trash.filter({ hasText: "Trash: 0 files" }).waitFor();
  check(!fs.existsSync(path.join(shared, ".lumidrop-trash")), "the trash is emptied on disk");
});
