// The viewer over the listing and the grid view of the default skin, in headless Debian
// Chromium against the real program. A folder holds a picture, a generated WAV, a hand-made
// PDF, an HTML page and an SVG that both try to run script, a text larger than the viewer
// reads and a file of no previewable type. Each opens in the viewer in turn with the
// buttons and arrow keys; the sound seeks; the page shows as text and no script runs; the
// address opens the viewer in a fresh page; Escape and Back close it. The grid shows
// pictures as thumbnails loaded as they come into view, and the choice of view lasts.
//
// Environment: LUMIDROP_BINARY (the program), LUMIDROP_SOURCE_DIR.

import fs from "node:fs";
import path from "node:path";

import { check, runBrowserTest, scratchHome } from "./harness.mjs";

// Seconds of silence, 8 kHz 16-bit mono PCM.
function wav(seconds) {
  const bytes = 8000 * 2 * seconds;
  const head = Buffer.from("RIFF    WAVEfmt                     data    ", "latin1");
  for (const [at, value] of [[4, 36 + bytes], [16, 16], [24, 8000], [28, 16000], [40, bytes]]) {
    head.writeUInt32LE(value, at);
  }
  for (const [at, value] of [[20, 1], [22, 1], [32, 2], [34, 16]]) head.writeUInt16LE(value, at);
  return Buffer.concat([head, Buffer.alloc(bytes)]);
}

// One blank page, without a cross-reference table: the reader rebuilds it.
const pdf =
  "%PDF-1.4\n1 0 obj <</Type /Catalog /Pages 2 0 R>> endobj\n" +
  "2 0 obj <</Type /Pages /Kids [3 0 R] /Count 1>> endobj\n" +
  "3 0 obj <</Type /Page /Parent 2 0 R /MediaBox [0 0 240 100]>> endobj\n" +
  "trailer <</Root 1 0 R>>\n%%EOF\n";

const korean = "한국어 한 줄: 미리 보기";
const hostile =
  "<script>window.ranFromShare = true; alert('page')</script>\n" +
  `<img src="x" onerror="window.ranFromShare = true">\n${korean}\n`;
const svg =
  '<svg xmlns="http://www.w3.org/2000/svg" width="80" height="80">' +
  "<script>alert('svg')</script><rect width=\"80\" height=\"80\" fill=\"teal\"/></svg>";
const picture = fs.readFileSync(path.join(process.env.LUMIDROP_SOURCE_DIR, "res/demo/pictures/gradient.png"));
const files = {
  "share/a-picture.png": picture,
  "share/b-tone.wav": wav(3),
  "share/c-paper.pdf": pdf,
  "share/d-page.html": hostile,
  "share/e-drawing.svg": svg,
  // Past 1 MiB, with a two-byte character split by the cut.
  "share/f-big.log": "a".repeat(1048575) + "é and more",
  "share/g-archive.zip": "PK not really",
};
for (let i = 0; i < 150; i += 1) files[`share/many/p${String(i).padStart(3, "0")}.png`] = picture;
const setup = scratchHome({ mounts: { files: "share" }, files });

await runBrowserTest(setup, async ({ page, base }) => {
  const dialogs = [];
  const asked = [];
  const watch = (target) => {
    target.on("dialog", (dialog) => {
      dialogs.push(dialog.message());
      dialog.dismiss();
    });
    target.on("request", (request) => asked.push(request.url()));
  };
  watch(page);
  const folder = `${base}/files/`;
  const waitShown = (name) =>
    page.waitForFunction((n) => document.querySelector(".viewer-name").textContent === n, name);

  // Each row carries the type its download is sent with.
  await page.goto(folder);
  const rows = await page.$$eval("tbody.entries tr.file", (all) =>
    all.map((row) => [row.querySelector("a.entry-name").getAttribute("href"), row.dataset.mime]),
  );
  check(rows.length === 7, `seven files listed: ${rows.length}`);
  for (const [link, type] of rows) {
    const sent = (await page.request.head(folder + link)).headers()["content-type"];
    check(sent === type, `${link}: row says ${type}, download is ${sent}`);
  }

  // A picture opens over the listing, with its address and a download link.
  await page.click("tbody.entries a.entry-name:text-is('a-picture.png')");
  await page.waitForFunction(() => document.querySelector(".viewer-stage img")?.naturalWidth > 0);
  check(page.url() === `${folder}#preview=a-picture.png`, `address names the file: ${page.url()}`);
  // The file's own address, however the listing encoded its name.
  const fileOf = (selector, property) =>
    page.$eval(selector, (element, p) => decodeURIComponent(new URL(element[p]).pathname), property);
  check((await fileOf(".viewer-download", "href")) === "/files/a-picture.png", "download link");
  check((await page.getAttribute(".viewer-download", "download")) === "a-picture.png", "saves");
  check((await page.textContent(".viewer-count")) === "1 / 6", "six previewable files");

  // The sound plays from any point the visitor winds it to.
  await page.keyboard.press("ArrowRight");
  await waitShown("b-tone.wav");
  const seekedTo = await page.evaluate(async () => {
    const audio = document.querySelector(".viewer-stage audio");
    if (audio.readyState < 1) await new Promise((done) => audio.addEventListener("loadedmetadata", done));
    const seeked = new Promise((done) => audio.addEventListener("seeked", done));
    audio.currentTime = 2.5;
    await seeked;
    return { at: audio.currentTime, duration: audio.duration, seekable: audio.seekable.length };
  });
  check(Math.abs(seekedTo.duration - 3) < 0.05, `three seconds long: ${seekedTo.duration}`);
  check(Math.abs(seekedTo.at - 2.5) < 0.05 && seekedTo.seekable > 0, `seeked: ${seekedTo.at}`);

  // The PDF goes to the browser's own reader (an extension page) in a frame.
  const reader = page.waitForEvent("framenavigated", {
    predicate: (frame) => frame.url().startsWith("chrome-extension://"),
  });
  await page.click(".viewer-next");
  await waitShown("c-paper.pdf");
  check((await fileOf(".viewer-stage iframe", "src")) === "/files/c-paper.pdf", "PDF framed");
  await reader;

  // The page shows as the text it is: its script and handlers stay words.
  await page.click(".viewer-next");
  await waitShown("d-page.html");
  await page.waitForFunction((k) => document.querySelector(".viewer-text")?.textContent.includes(k), korean);
  check((await page.textContent(".viewer-text")) === hostile, "the page shown byte for byte as text");
  check((await page.locator(".viewer-stage img, .viewer-stage script").count()) === 0, "no markup");
  check(await page.isHidden(".viewer-cut"), "a short text is whole");

  // The SVG is drawn as a picture, where its script does not run.
  await page.keyboard.press("ArrowRight");
  await waitShown("e-drawing.svg");
  await page.waitForFunction(() => document.querySelector(".viewer-stage img")?.naturalWidth === 80);

  // Only the first MiB of a long text is read, and the note says so.
  await page.keyboard.press("ArrowRight");
  await waitShown("f-big.log");
  await page.waitForSelector(".viewer-cut", { state: "visible" });
  const read = await page.evaluate(() => document.querySelector(".viewer-text").textContent.length);
  check(read === 1048575, `the cut drops the split character: ${read}`);

  // Past the last file comes the first; the zip is never among them.
  await page.keyboard.press("ArrowRight");
  await waitShown("a-picture.png");
  await page.keyboard.press("ArrowLeft");
  await waitShown("f-big.log");
  check(page.url() === `${folder}#preview=f-big.log`, "stepping keeps the address current");

  // Escape closes and takes the viewer's history entry back; Back closes too.
  await page.keyboard.press("Escape");
  await page.waitForSelector(".viewer", { state: "hidden" });
  await page.waitForURL(folder);
  await page.click("tbody.entries a.entry-name:text-is('e-drawing.svg')");
  await waitShown("e-drawing.svg");
  await page.goBack();
  await page.waitForSelector(".viewer", { state: "hidden" });
  check(page.url() === folder, `Back leaves the listing: ${page.url()}`);
  await page.goForward();
  await waitShown("e-drawing.svg");
  await page.keyboard.press("Escape");
  await page.waitForSelector(".viewer", { state: "hidden" });

  // The shared address opens the viewer in a fresh page; Escape there stays on the page.
  const fresh = await page.context().browser().newPage();
  watch(fresh);
  await fresh.goto(`${folder}#preview=${encodeURIComponent("d-page.html")}`);
  await fresh.waitForFunction((k) => document.querySelector(".viewer-text")?.textContent.includes(k), korean);
  await fresh.keyboard.press("Escape");
  await fresh.waitForSelector(".viewer", { state: "hidden" });
  check(fresh.url() === folder, `closed in place: ${fresh.url()}`);
  check(!(await fresh.evaluate(() => window.ranFromShare === true)), "no shared script ran");
  await fresh.close();
  check(await page.isHidden(".viewer"), "the first page's viewer stayed closed");
  check(!(await page.evaluate(() => window.ranFromShare === true)), "no shared script ran");

  // The grid: thumbnails load as they come into view; the choice outlasts the page.
  await page.goto(`${base}/files/many/`);
  await page.click(".view-grid-toggle");
  await page.waitForSelector("ul.grid img.grid-thumb");
  check(await page.isHidden("table.listing"), "the table gives way to the grid");
  check((await page.locator("ul.grid img.grid-thumb[loading=lazy]").count()) === 150, "lazy thumbs");
  check((await page.getAttribute("ul.grid li:first-child a", "href")) === "../", "the way up leads");
  await page.reload();
  check((await page.getAttribute(".view-grid-toggle", "aria-pressed")) === "true", "grid kept");
  await page.waitForFunction(() =>
    [...document.querySelectorAll("ul.grid img")].slice(0, 12).every((img) => img.naturalWidth > 0),
  );
  const last = `${base}/files/many/p149.png`;
  check(!asked.includes(last), "a picture far below is not fetched yet");
  await page.locator("ul.grid li").last().scrollIntoViewIfNeeded();
  await page.waitForFunction(() => [...document.querySelectorAll("ul.grid img")].pop().naturalWidth > 0);
  check(asked.includes(last), "it is fetched once scrolled to");
  await page.click("ul.grid a[data-preview='p149.png']");
  await waitShown("p149.png");
  check((await page.textContent(".viewer-count")) === "150 / 150", "the grid opens the viewer");

  check(dialogs.length === 0, `no dialog: ${dialogs.join(", ")}`);
});
