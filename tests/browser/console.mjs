// The owner's console as the owner uses it: headless Debian Chromium, driven by
// playwright-core, against the real program. Opens the printed address (the token becomes
// an HttpOnly cookie), adds a mount through the dialog and its folder picker, lets the
// anonymous visitor upload there, slows uploads down in Limits, follows a visitor's upload
// in Transfers, kicks it and finds the line it leaves in the Log. A screenshot of each view
// goes to the build folder, and one at a phone's width.
//
// Environment: LUMIDROP_BINARY (the program), LUMIDROP_BUILD_DIR (where the screenshots go).

import { randomBytes } from "node:crypto";
import fs from "node:fs";

import {
  check, checkFitsPhone, openConsole, runBrowserTest, scratchHome, screenshot as shoot, showView as view,
} from "./harness.mjs";

const uploadName = "slow-upload.bin";
const setup = scratchHome({
  settings: ["consolePort=0"],
  files: { "folders/inbox/": "", "folders/elsewhere/": "", [`picks/${uploadName}`]: randomBytes(3 << 20) },
});
const { at } = setup;
const folders = at("folders");
const inbox = at("folders", "inbox");
const uploadSpeed = 96; // KiB/s: the upload would last half a minute

await runBrowserTest(setup, async ({ page, base, consoleUrl }) => {
  const changed = (endpoint) =>
    page.waitForResponse((response) => response.url().endsWith(`/api/v1/${endpoint}`));
  const screenshot = (name) => shoot(page, `console-${name}`, true);

  // The token is swapped for a cookie that the page's own script cannot read.
  const { consoleBase, api } = await openConsole(page, consoleUrl);
  check(page.url() === `${consoleBase}/`, `token left the address bar: ${page.url()}`);
  const cookie = (await page.context().cookies(consoleBase)).find((c) => c.name === "lumidrop_console");
  check(cookie?.httpOnly && cookie.sameSite === "Strict", `HttpOnly cookie: ${JSON.stringify(cookie)}`);
  check((await page.evaluate(() => document.cookie)) === "", "cookie hidden from the page");

  // Home, in the owner's language; its address card is the Home test's.
  check((await page.textContent('.tabs a[href="#transfers"]')) === "Transfers", "pages translated");
  await page.waitForFunction(() => document.getElementById("home-state").textContent === "Listening");
  await screenshot("home");

  // A mount added through the dialog, its folder chosen with the picker.
  await view(page, "mounts");
  await page.click("#mounts-add");
  await page.fill("#mount-name", "inbox");
  await page.fill("#mount-path", folders);
  await page.click("#mount-browse");
  await page.click('#picker-folders button:text-is("inbox")');
  await page.waitForFunction((p) => document.getElementById("picker-path").textContent === p, inbox);
  await page.click("#picker-choose");
  check((await page.inputValue("#mount-path")) === inbox, "picker filled the path");
  await Promise.all([changed("mounts/add"), page.click('#mount-form button[type="submit"]')]);
  await page.waitForSelector('#mounts-rows tr[data-name="inbox"]');
  check(!(await page.isVisible("#mount-dialog")), "dialog closed");
  await screenshot("mounts");

  // Upload rights for the anonymous visitor; an admin right is only given when confirmed.
  await view(page, "accounts");
  const cell = 'td[data-account=".anonymous"][data-mount="inbox"]';
  await Promise.all([changed("rights/set"), page.check(`${cell} input[value="4"]`)]);
  page.once("dialog", (dialog) => dialog.dismiss());
  await page.click(`${cell} input[value="8"]`);
  check(!(await page.isChecked(`${cell} input[value="8"]`)), "admin right left off when not confirmed");
  const rights = (await api("rights")).rights;
  check(rights[".anonymous"].inbox === 7, `anonymous rights: ${JSON.stringify(rights)}`);
  await screenshot("accounts");

  // The IP filter's rule field says what is wrong while it is typed.
  await view(page, "ipfilter");
  for (const [rule, complaint] of [["10.*.*", "three dots"], ["10.0.0.?", "digits"]]) {
    await page.fill("#ipfilter-rule", rule);
    check((await page.textContent("#ipfilter-form .field-error")).includes(complaint), `${rule} refused`);
  }
  await page.fill("#ipfilter-rule", "10.*.*.*");
  check((await page.locator("#ipfilter-form .field-error").count()) === 0, "valid rule accepted");
  await page.selectOption("#ipfilter-action", "ban");
  await Promise.all([changed("ipfilter/add"), page.click("#ipfilter-submit")]);
  await page.waitForSelector('#ipfilter-rows tr td.rule:text-is("10.*.*.*")');
  await screenshot("ipfilter");
  page.once("dialog", (dialog) => dialog.accept());
  await Promise.all([
    changed("ipfilter/remove"),
    page.click('#ipfilter-rows tr[data-index="0"] button:text-is("Remove")'),
  ]);

  // Limits: uploads are slowed down (how a refusal shows is the Settings test's).
  await view(page, "limits");
  await page.check("#limit-upload-on");
  await page.fill("#limit-upload", String(uploadSpeed));
  await Promise.all([changed("limits/set"), page.click('#limits-form button[type="submit"]')]);
  await page.waitForSelector("#notice:text-is('Saved.')");
  check((await api("limits")).totalUploadSpeedLimit === uploadSpeed, "limit applied");
  await screenshot("limits");

  // A visitor (another browser profile, without the owner's cookies) uploads; the owner
  // watches the row move and kicks it.
  const visitor = await page.context().browser().newPage();
  await visitor.goto(`${base}/inbox/`);
  await visitor.setInputFiles("#lumi-upload-files", at("picks", uploadName));
  await visitor.click("form.upload-form button[type=submit]");
  await view(page, "transfers");
  // The visitor's page also keeps a connection open to follow its progress; the upload's
  // row names the file arriving, not the upload form's address.
  const upload = page
    .locator("#transfers-rows tr", { has: page.locator(".kind.is-upload") })
    .filter({ hasText: `/inbox/${uploadName}` });
  await upload.waitFor();
  const row = `#transfers-rows tr[data-id="${await upload.getAttribute("data-id")}"]`;
  const first = Number(await page.getAttribute(row, "data-position"));
  await page.waitForFunction(
    ([selector, before]) => Number(document.querySelector(selector)?.dataset.position) > before,
    [row, first],
  );
  check(await page.isVisible(`${row} progress`), "progress bar shown");
  await screenshot("transfers");
  await Promise.all([changed("transfers/kick"), page.click(`${row} button:text-is("Kick")`)]);
  await page.waitForSelector(row, { state: "detached" });
  check((await page.evaluate(() => document.body.dataset.live)) === "events", "live through events");
  await visitor.close();

  // The kick leaves its line in the log, which filters as the owner types.
  await view(page, "log");
  await page.waitForSelector('#log-lines li:has-text("Connection was kicked.")');
  await page.fill("#log-filter", "kicked");
  const shown = await page.$$eval("#log-lines li:not([hidden])", (items) => items.map((i) => i.textContent));
  check(shown.length > 0 && shown.every((text) => /kicked/i.test(text)), `filtered log: ${shown}`);
  await page.fill("#log-filter", "");
  await screenshot("log");

  // The log follows new lines at the bottom, and stops following while the owner reads
  // older ones higher up.
  const visit = async (times) => {
    const before = await page.$$eval("#log-lines li", (items) => items.length);
    for (let i = 0; i < times; i += 1) await fetch(`${base}/inbox/`);
    await page.waitForFunction((n) => document.querySelectorAll("#log-lines li").length > n, before);
  };
  const list = (read) => page.$eval("#log-lines", read);
  await visit(40);
  await page.waitForFunction(() => {
    const lines = document.getElementById("log-lines");
    return lines.scrollHeight > lines.clientHeight * 2;
  });
  await visit(2);
  const fromBottom = await list((l) => l.scrollHeight - l.scrollTop - l.clientHeight);
  check(fromBottom < 24, "log follows new lines at the bottom");
  await list((l) => (l.scrollTop = 0));
  await visit(2);
  check((await list((l) => l.scrollTop)) === 0, "log stays where the owner reads");
  check(!fs.readdirSync(inbox).includes(uploadName), "kicked upload left no file");

  // At a phone's width nothing runs off the side.
  for (const name of ["transfers", "log"]) {
    await view(page, name);
    await checkFitsPhone(page, name);
  }
  await screenshot("phone");
  console.log("browser console test passed");
});
