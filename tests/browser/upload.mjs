// The default skin in a real browser: headless Debian Chromium, driven by playwright-core,
// against the real program. Sorts a listing, creates a folder, uploads two files as a
// multipart post through the separate upload window with its live progress, sees them
// listed and downloads one byte for byte. (The page's own form is resumable: tusupload.mjs.)
//
// Environment: LUMIDROP_BINARY (the program), LUMIDROP_SOURCE_DIR, LUMIDROP_BUILD_DIR
// (where the screenshot of the finished listing goes).

import { randomBytes } from "node:crypto";
import fs from "node:fs";
import os from "node:os";
import path from "node:path";

import { check, runBrowserTest } from "./harness.mjs";

const sourceDir = process.env.LUMIDROP_SOURCE_DIR;
const buildDir = process.env.LUMIDROP_BUILD_DIR ?? os.tmpdir();

const scratch = fs.mkdtempSync(path.join(os.tmpdir(), "lumidrop-browser-"));
const home = path.join(scratch, "home");
const share = path.join(scratch, "demo");
const picks = path.join(scratch, "picks");
fs.mkdirSync(home);
fs.mkdirSync(picks);
fs.cpSync(path.join(sourceDir, "res", "demo"), share, { recursive: true });
fs.writeFileSync(
  path.join(home, "mount.ini"),
  `mounts+=demo|${share}|x|yes|x|no\r\n` +
    "authorities+=.anonymous|demo|7\r\nuiLanguageFile=English.wul\r\n" +
    // Slow enough (KiB/s) for the progress display to be seen at work.
    "totalUploadSpeedLimit=1024\r\n",
);
const big = randomBytes(3 * 1024 * 1024 + 17);
const small = Buffer.from("Small but mighty: \u00e9\u00e8\r\n");
fs.writeFileSync(path.join(picks, "big-picture.bin"), big);
fs.writeFileSync(path.join(picks, "note.txt"), small);

await runBrowserTest({ home, scratch }, async ({ page, base }) => {
  const asked = [];
  page.context().on("request", (request) => asked.push(request.url()));

  // Sorting by size: folders stay first, files go largest first.
  await page.goto(`${base}/demo/documents/`);
  await page.click("th.col-size button");
  check((await page.getAttribute("th.col-size", "aria-sort")) === "descending", "sorted by size");
  const sizes = await page.$$eval("tbody.entries tr.file td.col-size", (cells) =>
    cells.map((cell) => Number(cell.textContent.replace(/[^0-9]/g, ""))),
  );
  check(sizes.length === 4, `four files listed, got ${sizes.length}`);
  check(sizes.every((size, i) => i === 0 || sizes[i - 1] >= size), `sizes descending: ${sizes}`);

  // A new folder from the listing page.
  await page.goto(`${base}/demo/`);
  await page.fill("#lumi-folder-name", "From the browser");
  await Promise.all([page.waitForURL(`${base}/demo/`), page.click("form.mkdir-form button")]);
  check(fs.statSync(path.join(share, "From the browser")).isDirectory(), "folder created");
  const named = (row, name) => page.locator(`tbody.entries ${row} .entry-name`, { hasText: name });
  check((await named("tr.folder", "From the browser").count()) === 1, "new folder listed");

  // Two files through the upload window, followed to the end by the progress display.
  const [popup] = await Promise.all([page.waitForEvent("popup"), page.click("a.upload-window-link")]);
  popup.setDefaultTimeout(30000);
  await popup.setInputFiles("#lumi-window-files", ["big-picture.bin", "note.txt"].map((n) => path.join(picks, n)));
  await popup.click("form.upload-form button[type=submit]");
  await popup.waitForFunction(() =>
    /KB \/ [0-9,]+ KB/.test(document.querySelector("form.upload-form .progress-status").textContent),
  );
  await popup.screenshot({ path: path.join(buildDir, "browser-upload-progress.png") });
  await popup.waitForSelector("form.upload-form .upload-progress.is-done");
  const status = await popup.textContent("form.upload-form .progress-status");
  check(/finished/i.test(status), `progress reports the end: ${status}`);
  check((await popup.textContent("form.upload-form .progress-percent")) === "100%", "at 100%");
  check(asked.some((url) => url.includes("action=UploadStatus&key=")), "progress page polled");

  // The end link closes the window; the listing behind it is brought up to date.
  await Promise.all([popup.waitForEvent("close"), popup.click("form.upload-form .progress-status a")]);
  for (const name of ["big-picture.bin", "note.txt"]) {
    await named("tr", name).waitFor();
  }
  check(fs.readdirSync(share).every((name) => !name.endsWith(".LUMIDROP")), "no temporary file");

  const download = await page.request.get(`${base}/demo/big-picture.bin`);
  check(download.ok(), "download answered");
  check(Buffer.compare(await download.body(), big) === 0, "downloaded bytes equal the upload");
  check(fs.readFileSync(path.join(share, "note.txt")).equals(small), "small file stored exactly");

  await page.screenshot({ path: path.join(buildDir, "browser-upload.png"), fullPage: true });
  console.log("browser upload test passed");
});
