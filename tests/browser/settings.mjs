// The console's Settings view as the owner uses it, in headless Debian Chromium against the
// real program: choosing another language switches the console's own texts and the
// visitors' pages at once, without a reload of either program; a refused value shows its
// reason beside the field; the address group follows a host name live; and the view fits
// a phone's width. Screenshots go to the build folder.
//
// Environment: LUMIDROP_BINARY (the program), LUMIDROP_BUILD_DIR (where the screenshots go).

import fs from "node:fs";

import { check, runBrowserTest, scratchHome, screenshot } from "./harness.mjs";

const setup = scratchHome({
  mounts: { docs: "shared" },
  settings: ["consolePort=0"],
  files: { "shared/a.txt": "shared" },
});
const settingsFile = () => fs.readFileSync(setup.at("home", "mount.ini"), "utf8");

await runBrowserTest(setup, async ({ page, base, consoleUrl }) => {
  const address = await consoleUrl;
  check(address, "console address printed");
  await page.setViewportSize({ width: 1280, height: 900 });
  const visitor = await page.context().browser().newPage();
  // The visitors' listing: its language and the name of its path bar.
  const visitorPage = async () => {
    await visitor.goto(`${base}/docs/`);
    return visitor.evaluate(() => ({
      lang: document.documentElement.lang,
      path: document.querySelector("nav.crumbs")?.getAttribute("aria-label"),
    }));
  };
  const saved = () => page.waitForResponse((r) => r.url().endsWith("/api/v1/settings/set"));
  const tabText = (name) => page.textContent(`.tabs a[href="#${name}"]`);
  const waitForText = (selector, text) =>
    page.waitForFunction(([s, t]) => document.querySelector(s)?.textContent === t, [selector, text]);

  await page.goto(address);
  await page.waitForSelector("body[data-ready=true]");
  await page.click('.tabs a[href="#settings"]');
  await page.waitForSelector("#view-settings:not([hidden])");
  await page.waitForSelector("#settings-languages li");
  check((await tabText("settings")) === "Settings", "console in English");
  check((await page.inputValue("#settings-keepalive")) === "15", "saved values shown");
  const english = await page.textContent('label[for="settings-language-English.wul"]');
  check(english.includes("English") && english.includes("English.wul"), `language lines: ${english}`);
  const before = await visitorPage();
  check(before.lang === "en" && before.path === "Location", `visitors in English: ${JSON.stringify(before)}`);
  await screenshot(page, "settings", true);

  // The built-in Korean: the console and the next visitor's page speak it at once.
  let done = saved();
  await page.check("#settings-language-built-in");
  check((await done).ok(), "language saved");
  await waitForText('.tabs a[href="#settings"]', "설정");
  check((await tabText("home")) === "홈", "every tab retranslated");
  check((await page.textContent("#settings-title")) === "설정", "view heading retranslated");
  const after = await visitorPage();
  check(after.lang === "ko" && after.path === "현재 위치", `visitors in Korean: ${JSON.stringify(after)}`);
  check(settingsFile().includes("\r\nuiLanguageFile=\r\n"), "language saved to mount.ini");

  // A value out of bounds is refused beside its field, in the new language, and not saved.
  done = saved();
  await page.fill("#settings-keepalive", "0");
  await page.press("#settings-keepalive", "Tab");
  check((await done).status() === 400, "bad time-out refused");
  const refusal = await page.textContent("#settings-server .field-error");
  check(refusal.includes("3600") && refusal.includes("정수"), `refusal beside the field: ${refusal}`);
  check((await page.getAttribute("#settings-keepalive", "aria-invalid")) === "true", "field marked");
  check(settingsFile().includes("\r\nkeepAliveTimeout=15\r\n"), "refused value not saved");

  // And back to English, the same way.
  done = saved();
  await page.check('[id="settings-language-English.wul"]');
  await done;
  await waitForText('.tabs a[href="#settings"]', "Settings");
  // The tabs may follow the event stream before the form is filled again.
  const settled = await page
    .waitForFunction(
      () =>
        document.querySelector("#settings-server .field-error") === null &&
        document.getElementById("settings-keepalive").value === "15",
      null,
      { timeout: 10000 },
    )
    .then(() => true, () => false);
  check(settled, "the refusal went with its value, and the saved value is back");
  const again = await visitorPage();
  check(again.lang === "en" && again.path === "Location", `visitors in English again: ${JSON.stringify(again)}`);

  // The address the visitors are told follows the host name as soon as it is worked out.
  if (await page.isChecked("#settings-public")) {
    done = saved();
    await page.uncheck("#settings-public");
    await done;
  }
  done = saved();
  await page.check("#settings-use-host");
  await done;
  done = saved();
  await page.fill("#settings-host", "share.example.org");
  await page.press("#settings-host", "Tab");
  await done;
  await waitForText("#settings-address-now", "share.example.org");
  check(settingsFile().includes("HostName=share.example.org\r\n"), "host name saved");

  // A phone's width: one column, nothing wider than the screen.
  await page.setViewportSize({ width: 375, height: 800 });
  const overflow = await page.evaluate(() => document.documentElement.scrollWidth - window.innerWidth);
  check(overflow <= 0, `settings fit a phone: ${overflow}px too wide`);
  await screenshot(page, "settings-phone", true);
});
