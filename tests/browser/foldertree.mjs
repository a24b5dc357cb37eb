// The default skin's folder tree in a real browser against the real program: the way to a
// deep folder opens by itself, a node fetches its sub-folders when first opened (by
// keyboard here), a hostile folder name stays text, a name navigates, and on a phone's
// width the tree waits behind its toggle.
//
// Environment: LUMIDROP_BINARY (the program).

import { check, runBrowserTest, scratchHome } from "./harness.mjs";

const hostile = "<img src=x onerror=alert(1)>";
const files = { "share/a/file.txt": "not a folder" };
for (const folder of ["a/b/c", `a/${hostile}`, "x/y", "x/z"]) files[`share/${folder}/`] = "";
const setup = scratchHome({ mounts: { demo: "share" }, settings: ["canRootAccess=1"], files });

await runBrowserTest(setup, async ({ page, base }) => {
  let alerted = false;
  page.on("dialog", (dialog) => {
    alerted = true;
    dialog.dismiss();
  });
  const asked = [];
  page.on("request", (request) => asked.push(new URL(request.url()).pathname + new URL(request.url()).search));
  const names = (scope) =>
    page.$$eval(`${scope} > .tree-node > .tree-row .tree-name`, (links) => links.map((a) => a.textContent));

  await page.setViewportSize({ width: 1280, height: 800 });
  await page.goto(`${base}/demo/a/b/c/`);
  await page.waitForSelector('nav.folder-tree .tree-row.is-current .tree-name[aria-current="page"]');
  const current = await page.textContent("nav.folder-tree .is-current .tree-name");
  check(current === "c", `the current folder is marked: ${current}`);
  const expanded = await page.$$eval('nav.folder-tree .tree-toggle[aria-expanded="true"]', (buttons) =>
    buttons.map((button) => button.nextElementSibling.textContent),
  );
  check(expanded.join("/") === "Home/demo/a/b/c", `ancestors expanded: ${expanded.join("/")}`);
  check(await page.isVisible("nav.folder-tree .tree-root"), "the tree is shown beside the listing");

  // The hostile name is text in the tree, beside "b", and no file is listed.
  const underA = "nav.folder-tree .tree-root > .tree-node > .tree-children > .tree-node > .tree-children > .tree-node > .tree-children";
  const siblings = await names(underA);
  check(siblings.length === 2 && siblings.includes(hostile) && siblings.includes("b"), `a's folders: ${siblings}`);
  check((await page.$$("nav.folder-tree img")).length === 0 && !alerted, "no markup from a name");

  // "x" is closed until asked; opened from the keyboard, it fetches its own list.
  const xRow = page.locator("nav.folder-tree .tree-row", { has: page.locator(".tree-name", { hasText: /^x$/ }) });
  check(!asked.includes("/demo/x/?action=Subdir"), "closed nodes ask for nothing");
  await xRow.locator(".tree-toggle").focus();
  await page.keyboard.press("Enter");
  await page.waitForSelector("nav.folder-tree .tree-name >> text=/^z$/");
  check(asked.includes("/demo/x/?action=Subdir"), "opening x fetched its sub-folders");
  check((await xRow.locator(".tree-toggle").getAttribute("aria-expanded")) === "true", "x says it is open");

  await Promise.all([
    page.waitForURL(`${base}/demo/x/y/`),
    page.click("nav.folder-tree .tree-name >> text=/^y$/"),
  ]);
  await page.waitForSelector("nav.folder-tree .is-current .tree-name >> text=/^y$/");

  // A phone: the tree stays folded behind its toggle until asked.
  await page.setViewportSize({ width: 390, height: 800 });
  check(!(await page.isVisible("nav.folder-tree .tree-root")), "folded on a narrow screen");
  await page.click("nav.folder-tree .folder-tree-toggle");
  check(await page.isVisible("nav.folder-tree .tree-root"), "unfolded by its toggle");
  const label = await page.textContent("nav.folder-tree .folder-tree-toggle");
  check(label.trim() === "Folders", `toggle in English: ${label}`);
});
