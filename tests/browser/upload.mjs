// The default skin's two ways up in headless Debian Chromium against the real program.
// The separate upload window posts two files as a multipart form with its live progress,
// after a folder was made; they are listed and one downloads byte for
// byte. The listing's own resumable uploader sends picked files in pieces with a row each;
// one is paused, resumed, left by a reload, picked again and resumed where the server
// stands, through a connection cut by the test; a dropped folder tree and a picked folder
// arrive with their folders. Every file ends byte-exact on disk, and a hostile name stays
// text.
//
// Environment: LUMIDROP_BINARY (the program), LUMIDROP_SOURCE_DIR, LUMIDROP_BUILD_DIR
// (where the screenshots go).

import { randomBytes } from "node:crypto";
import fs from "node:fs";
import path from "node:path";

import { check, runBrowserTest, scratchHome, screenshot } from "./harness.mjs";

const hostile = "<img src=x onerror=alert(1)> & co.txt";
const files = {
  "picks/big-picture.bin": randomBytes(12 * 1024 * 1024 + 17),
  "picks/note.txt": Buffer.from("Small but mighty: \u00e9\u00e8\r\n"),
  // Three pieces of 8 MiB and a bit: the last one short.
  "picks/big.bin": randomBytes(2 * 8 * 1024 * 1024 + 3 * 1024 * 1024 + 5),
  [`picks/${hostile}`]: Buffer.from("not markup\n"),
  "picks/one.txt": Buffer.from("first of the album\n"),
  "picks/two.bin": randomBytes(70000),
  "picks/loose.txt": Buffer.from(""),
  "picks/camera/a.jpg": randomBytes(5000),
  "picks/camera/day two/b.jpg": randomBytes(6000),
};
const setup = scratchHome({
  mounts: { demo: "demo", inbox: "inbox" },
  settings: [
    "authorities+=.anonymous|demo|7",
    "authorities+=.anonymous|inbox|7",
    // KiB/s: slow enough for the progress to be seen and the big file paused and cut.
    "totalUploadSpeedLimit=4096",
  ],
  files,
});
const share = setup.at("demo");
const inbox = setup.at("inbox");
fs.cpSync(path.join(process.env.LUMIDROP_SOURCE_DIR, "res", "demo"), share, { recursive: true });
const pick = (name) => setup.at("picks", name);

function sameBytes(stored, name) {
  const where = path.join(inbox, stored);
  check(fs.existsSync(where), `${stored} stored`);
  check(fs.readFileSync(where).equals(files[`picks/${name}`]), `${stored} stored byte for byte`);
}

// A drop of a folder tree as the browser hands it over: entries to be walked, read here in
// batches of one as a browser may give a big folder's entries in several.
async function dropTree(page, tree) {
  await page.evaluate((tree) => {
    const picked = Array.from(document.getElementById("test-picks").files);
    const entry = (node) => {
      if (typeof node === "string") {
        return { isFile: true, isDirectory: false, name: node, file: (ok) => ok(picked.find((f) => f.name === node)) };
      }
      const children = node.children.map(entry);
      return {
        isFile: false, isDirectory: true, name: node.name,
        createReader: () => {
          let next = 0;
          return { readEntries: (ok) => setTimeout(() => ok(children.slice(next, ++next))) };
        },
      };
    };
    const items = tree.map(entry).map((one) => ({ kind: "file", webkitGetAsEntry: () => one }));
    const drop = new Event("drop", { bubbles: true, cancelable: true });
    Object.defineProperty(drop, "dataTransfer", { value: { types: ["Files"], files: picked, items } });
    document.body.dispatchEvent(drop);
  }, tree);
}

await runBrowserTest(setup, async ({ page, base }) => {
  const polled = [];
  page.context().on("request", (request) => polled.push(request.url()));

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
  await popup.setInputFiles("#lumi-window-files", ["big-picture.bin", "note.txt"].map(pick));
  await popup.click("form.upload-form button[type=submit]");
  await popup.waitForFunction(() =>
    /KB \/ [0-9,]+ KB/.test(document.querySelector("form.upload-form .progress-status").textContent),
  );
  await popup.waitForSelector("form.upload-form .upload-progress.is-done");
  const status = await popup.textContent("form.upload-form .progress-status");
  check(/finished/i.test(status), `progress reports the end: ${status}`);
  check((await popup.textContent("form.upload-form .progress-percent")) === "100%", "at 100%");
  check(polled.some((url) => url.includes("action=UploadStatus&key=")), "progress page polled");

  // The end link closes the window; the listing behind it is brought up to date.
  await Promise.all([popup.waitForEvent("close"), popup.click("form.upload-form .progress-status a")]);
  for (const name of ["big-picture.bin", "note.txt"]) await named("tr", name).waitFor();

  const download = await page.request.get(`${base}/demo/big-picture.bin`);
  check(download.ok(), "download answered");
  check((await download.body()).equals(files["picks/big-picture.bin"]), "downloaded bytes equal the upload");

  await screenshot(page, "upload", true);

  // The resumable uploader, in a folder of its own.
  page.on("dialog", (dialog) => dialog.accept());  // leaving with an upload under way
  const asked = [];
  page.on("request", (request) => {
    if (!request.url().includes("action=tus")) return;
    asked.push({ method: request.method(), offset: request.headers()["upload-offset"] });
  });
  const told = [];  // the offsets the server gave in answer to HEAD
  page.on("response", (response) => {
    if (response.request().method() === "HEAD") told.push(response.headers()["upload-offset"]);
  });
  // A connection that breaks under the next piece, as a phone's might.
  let cutNext = false;
  let cuts = 0;
  await page.route(/action=tus/, (route) => {
    if (cutNext && route.request().method() === "PATCH") {
      cutNext = false;
      cuts += 1;
      return route.abort("connectionreset");
    }
    return route.continue();
  });
  const row = (name) => page.locator(".queue-row", { has: page.locator(".queue-name", { hasText: name }) });
  const sent = async (name) => Number(await row(name).getAttribute("data-sent"));
  const waitForSent = (name, bytes) =>
    page.waitForFunction(([name, bytes]) => {
      const rows = Array.from(document.querySelectorAll(".queue-row"));
      const found = rows.find((one) => one.querySelector(".queue-name").textContent === name);
      return found && Number(found.getAttribute("data-sent")) > bytes;
    }, [name, bytes]);

  await page.goto(`${base}/inbox/`);
  await page.setInputFiles("#lumi-upload-files", [pick("big.bin"), pick(hostile)]);
  await page.click("form.upload-form button[type=submit]");

  // The hostile name is shown as it is, never read as markup.
  await row(hostile).and(page.locator(".is-done")).waitFor();
  check((await row(hostile).locator(".queue-name").textContent()) === hostile, "name shown as text");
  check((await page.locator(".upload-queue img").count()) === 0, "no markup from a name");
  sameBytes(hostile, hostile);

  // Paused halfway: nothing more goes up until it is resumed.
  await waitForSent("big.bin", 2 * 1024 * 1024);
  await page.click(".queue-pause-all");
  await row("big.bin").and(page.locator(".is-paused")).waitFor();
  const pausedAt = await sent("big.bin");
  const askedWhenPaused = asked.length;
  await page.waitForTimeout(800);
  check(asked.length === askedWhenPaused && (await sent("big.bin")) === pausedAt, "paused upload rests");
  check(!fs.existsSync(path.join(inbox, "big.bin")), "big.bin not complete yet");

  await row("big.bin").locator(".queue-toggle").click();
  await waitForSent("big.bin", 10 * 1024 * 1024);

  // A reload forgets the page, not the upload: the same file picked again goes on where
  // the server stands, through a connection cut under the next piece.
  await page.reload();
  const created = asked.filter((one) => one.method === "POST").length;
  const beforeResume = asked.length;
  const toldBefore = told.length;
  cutNext = true;
  await page.setInputFiles("#lumi-upload-files", [pick("big.bin")]);
  await Promise.all([
    page.waitForEvent("load", { timeout: 60000 }),
    page.click("form.upload-form button[type=submit]"),
  ]);
  sameBytes("big.bin", "big.bin");
  const resumed = asked.slice(beforeResume);
  check(created === 2 && !resumed.some((one) => one.method === "POST"), "resumed, not created again");
  check(resumed[0].method === "HEAD", "asked the server for its offset first");
  const firstPiece = resumed.find((one) => one.method === "PATCH");
  check(Number(firstPiece.offset) > 0 && firstPiece.offset === told[toldBefore],
        `went on from ${firstPiece.offset}, where the server stood: ${told[toldBefore]}`);
  check(cuts === 1 && resumed.filter((one) => one.method === "HEAD").length >= 2, "cut connection resumed by itself");
  await page.locator("tbody.entries .entry-name", { hasText: "big.bin" }).waitFor();

  // A dropped tree: its folders are made before their files, an empty one too.
  await page.evaluate(() =>
    document.body.insertAdjacentHTML("beforeend", '<input type="file" multiple id="test-picks" hidden>'),
  );
  await page.setInputFiles("#test-picks", ["one.txt", "two.bin", "loose.txt"].map(pick));
  await Promise.all([
    page.waitForEvent("load"),
    dropTree(page, [
      { name: "album", children: ["one.txt", { name: "deep", children: ["two.bin"] }, { name: "empty", children: [] }] },
      "loose.txt",
    ]),
  ]);
  sameBytes("album/one.txt", "one.txt");
  sameBytes("album/deep/two.bin", "two.bin");
  sameBytes("loose.txt", "loose.txt");
  check(fs.statSync(path.join(inbox, "album", "empty")).isDirectory(), "empty folder made");

  // A folder picked with the folder chooser keeps its structure as well.
  await Promise.all([page.waitForEvent("load"), page.setInputFiles("input.tool-folder", pick("camera"))]);
  sameBytes("camera/a.jpg", "camera/a.jpg");
  sameBytes("camera/day two/b.jpg", "camera/day two/b.jpg");

  // Nothing half-made is left behind.
  const stored = fs.readdirSync(inbox, { recursive: true }).sort();
  const expected = ["album", "album/deep", "album/deep/two.bin", "album/empty", "album/one.txt",
    "big.bin", "camera", "camera/a.jpg", "camera/day two", "camera/day two/b.jpg", "loose.txt", hostile].sort();
  check(JSON.stringify(stored) === JSON.stringify(expected), `only the uploads stored: ${stored}`);
  console.log("browser upload test passed");
});
