// The listing's resumable uploader in headless Chromium against the real program. Picked
// files go up in pieces with a row each; one is paused, resumed, left by a reload, picked
// again and resumed where the server stands, through a connection cut by the test; a
// dropped folder tree and a picked folder arrive with their folders. Every file ends
// byte-exact on disk, and a hostile name stays text.
//
// Environment: LUMIDROP_BINARY (the program), LUMIDROP_BUILD_DIR (the screenshot).

import { randomBytes } from "node:crypto";
import fs from "node:fs";
import os from "node:os";
import path from "node:path";

import { check, runBrowserTest } from "./harness.mjs";

const buildDir = process.env.LUMIDROP_BUILD_DIR ?? os.tmpdir();
const scratch = fs.mkdtempSync(path.join(os.tmpdir(), "lumidrop-tus-"));
const home = path.join(scratch, "home");
const share = path.join(scratch, "inbox");
const picks = path.join(scratch, "picks");
for (const folder of [home, share, path.join(picks, "camera", "day two")]) {
  fs.mkdirSync(folder, { recursive: true });
}
fs.writeFileSync(
  path.join(home, "mount.ini"),
  `mounts+=inbox|${share}|x|yes|x|no\r\n` +
    "authorities+=.anonymous|inbox|7\r\nuiLanguageFile=English.wul\r\n" +
    // KiB/s: slow enough that the big file can be paused and cut halfway.
    "totalUploadSpeedLimit=4096\r\n",
);

// Three pieces of 8 MiB and a bit: the last one short.
const files = {
  "big.bin": randomBytes(2 * 8 * 1024 * 1024 + 3 * 1024 * 1024 + 5),
  "<img src=x onerror=alert(1)> & co.txt": Buffer.from("not markup\n"),
  "one.txt": Buffer.from("first of the album\n"),
  "two.bin": randomBytes(70000),
  "loose.txt": Buffer.from(""),
  "camera/a.jpg": randomBytes(5000),
  "camera/day two/b.jpg": randomBytes(6000),
};
for (const [name, bytes] of Object.entries(files)) fs.writeFileSync(path.join(picks, name), bytes);
const hostile = "<img src=x onerror=alert(1)> & co.txt";
const pick = (name) => path.join(picks, name);

function sameBytes(stored, name) {
  const where = path.join(share, stored);
  check(fs.existsSync(where), `${stored} stored`);
  check(fs.readFileSync(where).equals(files[name]), `${stored} stored byte for byte`);
}

// A drop of a folder tree as the browser hands it over: entries to be walked, read here in
// batches of one as a browser may give a big folder's entries in several.
async function dropTree(page, tree) {
  await page.evaluate((tree) => {
    const picked = Array.from(document.getElementById("test-picks").files);
    const fileEntry = (name) => ({
      isFile: true, isDirectory: false, name,
      file: (ok) => ok(picked.find((file) => file.name === name)),
    });
    const entry = (node) => {
      if (typeof node === "string") return fileEntry(node);
      const children = node.children.map(entry);
      return {
        isFile: false, isDirectory: true, name: node.name,
        createReader: () => {
          let next = 0;
          return { readEntries: (ok) => setTimeout(() => ok(children.slice(next, ++next))) };
        },
      };
    };
    const entries = tree.map(entry);
    const drop = new Event("drop", { bubbles: true, cancelable: true });
    Object.defineProperty(drop, "dataTransfer", {
      value: {
        types: ["Files"],
        files: picked,
        items: entries.map((one) => ({ kind: "file", webkitGetAsEntry: () => one })),
      },
    });
    document.body.dispatchEvent(drop);
  }, tree);
}

await runBrowserTest({ home, scratch }, async ({ page, base }) => {
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
  check(!fs.existsSync(path.join(share, "big.bin")), "big.bin not complete yet");
  await page.screenshot({ path: path.join(buildDir, "browser-tusupload-paused.png") });

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
  await page.evaluate(() => {
    const input = document.createElement("input");
    input.type = "file";
    input.multiple = true;
    input.id = "test-picks";
    input.hidden = true;
    document.body.appendChild(input);
  });
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
  check(fs.statSync(path.join(share, "album", "empty")).isDirectory(), "empty folder made");

  // A folder picked with the folder chooser keeps its structure as well.
  await Promise.all([page.waitForEvent("load"), page.setInputFiles("input.tool-folder", pick("camera"))]);
  sameBytes("camera/a.jpg", "camera/a.jpg");
  sameBytes("camera/day two/b.jpg", "camera/day two/b.jpg");

  // Nothing half-made is left behind.
  const stored = fs.readdirSync(share, { recursive: true }).sort();
  const expected = ["album", "album/deep", "album/deep/two.bin", "album/empty", "album/one.txt",
    "big.bin", "camera", "camera/a.jpg", "camera/day two", "camera/day two/b.jpg", "loose.txt", hostile].sort();
  check(JSON.stringify(stored) === JSON.stringify(expected), `only the uploads stored: ${stored}`);
  console.log("browser resumable upload test passed");
});
