// Plug-ins as a visitor and the owner meet them in headless Chromium against the real
// program. The shipped gallery, installed into the new home: a folder of 31 pictures shows
// as thumbnails that load as they scroll into view, a click opens the full-size viewer, the
// buttons and the arrow keys step through the pictures and Escape closes it; a name with
// "<" and "&" shows as the text it is, and neither other files nor hidden pictures are
// shown. The listing's action plug-in takes the ticked files (names with blanks and "&"
// arrive whole, one per line), and the console's Plug-ins page lists the libraries and
// reloads them.
//
// Environment: LUMIDROP_BINARY (the program), LUMIDROP_BUILD_DIR (the probe plug-ins and
// the screenshots).

import fs from "node:fs";
import path from "node:path";

import { check, openConsole, runBrowserTest, scratchHome, screenshot, showView } from "./harness.mjs";

const picture = fs.readFileSync(new URL("../../res/demo/pictures/gradient.png", import.meta.url));
const awkward = "<b>&amp; x.png";
const names = [awkward];
for (let i = 1; i <= 30; i += 1) names.push(`pic-${String(i).padStart(2, "0")}.png`);
const files = {
  "shared/a b.txt": "a b.txt",
  "shared/c&d.txt": "c&d.txt",
  "shared/e.txt": "e.txt",
  "pics/notes.txt": "not a picture",
  "pics/.secret.png": picture,
  "pics/More/inside.png": picture,
};
for (const name of names) files[`pics/${name}`] = picture;
const { scratch, home } = scratchHome({
  mounts: { docs: "shared", pics: "pics" },
  settings: ["consolePort=0"],
  files,
});
fs.mkdirSync(path.join(home, "Plugin"));
const probes = path.join(process.env.LUMIDROP_BUILD_DIR, "probe-plugins");
fs.copyFileSync(path.join(probes, "probe_action.so"), path.join(home, "Plugin", "probe_action.so"));

// The shipped plug-ins are offered beside the probe.
const probeButton = 'form.plugin-action:has(input[value="probe_action"]) button';

await runBrowserTest({ home, scratch }, async ({ page, base, consoleUrl }) => {
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
    return first.complete && first.naturalWidth === 96;
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
  await screenshot(page, "gallery");

  // The viewer: opens on the clicked picture, steps both ways round the ends.
  const position = () => page.textContent("#gallery-position");
  await thumbs.nth(1).click();
  await page.waitForSelector("#gallery-viewer[open]");
  check((await position()) === `2 / ${names.length}`, `opened at ${await position()}`);
  await page.waitForFunction(() => {
    const full = document.getElementById("gallery-full");
    const shownFile = decodeURIComponent(full.src);
    return full.complete && full.naturalWidth === 96 && shownFile.endsWith("/pics/pic-01.png");
  });
  // Each step: a button or a key, and the position it leads to.
  const steps = [["#gallery-next", 3], ["ArrowRight", 4], ["ArrowLeft", 3], ["ArrowLeft", 2],
    ["#gallery-previous", 1], ["ArrowLeft", names.length]];
  for (const [step, at] of steps) {
    if (step.startsWith("#")) await page.click(step);
    else await page.keyboard.press(step);
    check((await position()) === `${at} / ${names.length}`, `${step} leads to ${await position()}`);
    const shown = decodeURIComponent(await page.getAttribute("#gallery-full", "src"));
    check(shown.endsWith(`/pics/${names[at - 1]}`), `picture follows: ${shown}`);
    check((await page.textContent("#gallery-caption")) === names[at - 1], "caption as text");
  }
  await page.keyboard.press("Escape");
  await page.waitForFunction(() => !document.getElementById("gallery-viewer").open);

  // A sub-folder is a link to its own gallery.
  await page.click(".gallery-folders a");
  await page.waitForSelector("#gallery-grid");
  check((await page.textContent("h1")) === "More", "sub-folder gallery");
  check((await page.locator("#gallery-grid img").count()) === 1, "its one picture");

  // The probe, as an action on the ticked files of a listing.
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

  await openConsole(page, consoleUrl);
  await showView(page, "plugins");
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
