// The shipped gallery plug-in as a visitor uses it: headless Debian Chromium, driven by
// playwright-core, against the real program with a fresh home (so the plug-in is the one
// the program installs). A folder of 31 generated pictures shows as thumbnails that load
// as they scroll into view, a click opens the full-size viewer, the buttons and the arrow
// keys step through the pictures and Escape closes it; a name with "<" and "&" shows as
// the text it is, and neither other files nor hidden pictures are shown.
//
// Environment: LUMIDROP_BINARY (the program), LUMIDROP_BUILD_DIR (where the screenshots go).

import fs from "node:fs";
import os from "node:os";
import path from "node:path";
import zlib from "node:zlib";

import { check, runBrowserTest } from "./harness.mjs";

const buildDir = process.env.LUMIDROP_BUILD_DIR ?? os.tmpdir();
const scratch = fs.mkdtempSync(path.join(os.tmpdir(), "lumidrop-gallery-"));
const home = path.join(scratch, "home");
const share = path.join(scratch, "share");
fs.mkdirSync(path.join(share, "More"), { recursive: true });
fs.mkdirSync(home);
fs.writeFileSync(
  path.join(home, "mount.ini"),
  `mounts+=pics|${share}|x|yes|x|no\r\nuiLanguageFile=English.wul\r\n`,
);

// A PNG of one colour with a darker band, so each picture of the screenshot is told apart.
function png(width, height, [r, g, b]) {
  const chunk = (type, data) => {
    const length = Buffer.alloc(4);
    length.writeUInt32BE(data.length);
    const body = Buffer.concat([Buffer.from(type, "ascii"), data]);
    const crc = Buffer.alloc(4);
    crc.writeUInt32BE(zlib.crc32(body));
    return Buffer.concat([length, body, crc]);
  };
  const header = Buffer.alloc(13);
  header.writeUInt32BE(width, 0);
  header.writeUInt32BE(height, 4);
  header.set([8, 2, 0, 0, 0], 8);
  const rows = [];
  for (let y = 0; y < height; y += 1) {
    const shade = y > height * 0.7 ? 0.5 : 1;
    const row = Buffer.alloc(1 + width * 3);
    for (let x = 0; x < width; x += 1) row.set([r * shade, g * shade, b * shade], 1 + x * 3);
    rows.push(row);
  }
  return Buffer.concat([
    Buffer.from([0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a]),
    chunk("IHDR", header),
    chunk("IDAT", zlib.deflateSync(Buffer.concat(rows))),
    chunk("IEND", Buffer.alloc(0)),
  ]);
}

const awkward = "<b>&amp; x.png";
const names = [awkward];
for (let i = 1; i <= 30; i += 1) names.push(`pic-${String(i).padStart(2, "0")}.png`);
names.forEach((name, i) => {
  const hue = (i * 47) % 360;
  const colour = [0, 120, 240].map(
    (offset) => 128 + 127 * Math.cos(((hue + offset) * Math.PI) / 180),
  );
  fs.writeFileSync(path.join(share, name), png(240, 160, colour));
});
fs.writeFileSync(path.join(share, "notes.txt"), "not a picture");
fs.writeFileSync(path.join(share, ".secret.png"), png(8, 8, [0, 0, 0]));
fs.writeFileSync(path.join(share, "More", "inside.png"), png(60, 40, [0, 0, 255]));

await runBrowserTest({ home, scratch }, async ({ page, base }) => {
  const fetched = new Set();
  page.on("request", (request) => {
    const { pathname } = new URL(request.url());
    if (pathname.endsWith(".png")) fetched.add(decodeURIComponent(pathname));
  });
  // A phone's screen: one column, so most pictures lie far below the fold.
  await page.setViewportSize({ width: 360, height: 640 });
  await page.goto(`${base}/pics/?action=Plugin&plugin=gallery`);
  const thumbs = page.locator("#gallery-grid a.gallery-thumb");
  check((await thumbs.count()) === names.length, `${await thumbs.count()} thumbnails`);
  // What is in view arrives; what lies far below waits for the scroll.
  await page.waitForFunction(() => {
    const first = document.querySelector("#gallery-grid img");
    return first.complete && first.naturalWidth === 240;
  });
  const beforeScroll = fetched.size;
  check(beforeScroll >= 2 && beforeScroll < names.length, `${beforeScroll} loaded unscrolled`);
  check(!fetched.has("/pics/pic-30.png"), "the last picture waits");
  for (let i = 0; i < names.length; i += 1) await thumbs.nth(i).scrollIntoViewIfNeeded();
  await page.waitForFunction(
    (count) =>
      [...document.querySelectorAll("#gallery-grid img")].filter((img) => img.naturalWidth > 0)
        .length === count,
    names.length,
  );

  // The awkward name is text, never markup, in the grid and in the viewer.
  check((await thumbs.first().locator("span").textContent()) === awkward, "name shown as text");
  check((await page.locator("#gallery-grid b").count()) === 0, "no markup from a name");
  check((await page.getAttribute("#gallery-listing", "href")) === "/pics/", "back to the listing");
  await page.setViewportSize({ width: 1024, height: 768 });
  await page.evaluate(() => window.scrollTo(0, 0));
  await page.screenshot({ path: path.join(buildDir, "browser-gallery.png") });

  // The viewer: opens on the clicked picture, steps both ways round the ends.
  const position = () => page.textContent("#gallery-position");
  await thumbs.nth(1).click();
  await page.waitForSelector("#gallery-viewer[open]");
  check((await position()) === `2 / ${names.length}`, `opened at ${await position()}`);
  await page.waitForFunction(() => {
    const full = document.getElementById("gallery-full");
    const shownFile = decodeURIComponent(full.src);
    return full.complete && full.naturalWidth === 240 && shownFile.endsWith("/pics/pic-01.png");
  });
  await page.screenshot({ path: path.join(buildDir, "browser-gallery-viewer.png") });
  await page.click("#gallery-next");
  check((await position()) === `3 / ${names.length}`, "next button");
  await page.keyboard.press("ArrowRight");
  check((await position()) === `4 / ${names.length}`, "right arrow");
  const shown = decodeURIComponent(await page.getAttribute("#gallery-full", "src"));
  check(shown.endsWith("/pics/pic-03.png"), `picture follows: ${shown}`);
  await page.keyboard.press("ArrowLeft");
  await page.keyboard.press("ArrowLeft");
  await page.click("#gallery-previous");
  check((await position()) === `1 / ${names.length}`, "back to the first");
  check((await page.textContent("#gallery-caption")) === awkward, "caption as text");
  await page.keyboard.press("ArrowLeft");
  check((await position()) === `${names.length} / ${names.length}`, "round the start");
  await page.keyboard.press("Escape");
  await page.waitForFunction(() => !document.getElementById("gallery-viewer").open);

  // A sub-folder is a link to its own gallery.
  await page.click(".gallery-folders a");
  await page.waitForSelector("#gallery-grid");
  check((await page.textContent("h1")) === "More", "sub-folder gallery");
  check((await page.locator("#gallery-grid img").count()) === 1, "its one picture");
});
