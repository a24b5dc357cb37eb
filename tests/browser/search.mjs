// The default skin's search box and readable sizes in a real browser against the real
// program: sizes read "1.4 MB" with the exact count in the tooltip and still sort by the
// exact count, the search box finds a file deep below, each result names its folder, and
// both links lead there.
//
// Environment: LUMIDROP_BINARY (the program).

import { check, runBrowserTest, scratchHome } from "./harness.mjs";

// Sorted by their readable texts' digits these would come out 900, 2.0, 1.4.
const setup = scratchHome({
  mounts: { demo: "share" },
  files: {
    "share/large.bin": Buffer.alloc(2000000),
    "share/medium.bin": Buffer.alloc(1400000),
    "share/small.bin": Buffer.alloc(900000),
    "share/trips/2023 Alps/Summit Photo.jpg": "picture",
  },
});

await runBrowserTest(setup, async ({ page, base }) => {
  await page.goto(`${base}/demo/`);
  const sizeOf = (name) => page.locator("tr", { has: page.locator(`a.entry-name >> text="${name}"`) }).locator("td.col-size");
  const medium = sizeOf("medium.bin");
  check((await medium.textContent()) === "1.4 MB", `readable size: ${await medium.textContent()}`);
  check((await medium.getAttribute("title")) === "1,400,000 bytes", "exact size in the tooltip");

  await page.click('th[data-sort="size"] button');  // largest first
  const order = await page.$$eval("tbody.entries tr.file a.entry-name", (links) => links.map((a) => a.textContent));
  check(order.join(",") === "large.bin,medium.bin,small.bin", `sorted by bytes: ${order}`);

  await page.fill("#lumi-search", "summit PHOTO");
  await Promise.all([page.waitForURL(/action=Search/), page.press("#lumi-search", "Enter")]);
  const rows = page.locator("tbody.entries tr[data-kind]");
  check((await rows.count()) === 1, `one result: ${await rows.count()}`);
  const folder = rows.locator("td.col-folder a");
  check((await folder.textContent()) === "/demo/trips/2023 Alps/", `its folder: ${await folder.textContent()}`);
  check((await page.inputValue("#lumi-search")) === "summit PHOTO", "the box keeps the words");

  const response = await page.request.get(await rows.locator("a.entry-name").evaluate((a) => a.href));
  check((await response.text()) === "picture", "the result's link serves the file");
  await Promise.all([page.waitForURL(`${base}/demo/trips/2023%20Alps/`), folder.click()]);
  check((await page.locator("a.entry-name >> text=\"Summit Photo.jpg\"").count()) === 1, "the folder link lists it");
});
