// The console's Settings view as the owner uses it, in headless Debian Chromium against the
// real program: choosing another language switches the console's own texts and the
// visitors' pages at once, without a reload of either program; a refused value shows its
// reason beside the field; the address group follows a host name live; and the view fits
// a phone's width.
//
// Environment: LUMIDROP_BINARY (the program).

import { check, checkFitsPhone, openConsole, runBrowserTest, scratchHome, showView } from "./harness.mjs";

const setup = scratchHome({
  mounts: { docs: "shared" },
  settings: ["consolePort=0"],
  files: { "shared/a.txt": "shared" },
});

await runBrowserTest(setup, async ({ page, base, consoleUrl }) => {
  const visitor = await page.context().browser().newPage();
  // The visitors' listing: its language and the name of its path bar.
  const visitorSees = async (lang, path) => {
    await visitor.goto(`${base}/docs/`);
    const seen = await visitor.evaluate(() => ({
      lang: document.documentElement.lang,
      path: document.querySelector("nav.crumbs")?.getAttribute("aria-label"),
    }));
    check(seen.lang === lang && seen.path === path, `visitors' page: ${JSON.stringify(seen)}`);
  };
  // The answer to the change that `actions` make.
  const save = async (...actions) => {
    const answer = page.waitForResponse((r) => r.url().endsWith("/api/v1/settings/set"));
    for (const act of actions) await act();
    return answer;
  };
  const tabText = (name) => page.textContent(`.tabs a[href="#${name}"]`);
  const waitForText = (selector, text) =>
    page.waitForFunction(([s, t]) => document.querySelector(s)?.textContent === t, [selector, text]);

  await openConsole(page, consoleUrl);
  await showView(page, "settings");
  await page.waitForSelector("#settings-languages li");
  check((await tabText("settings")) === "Settings", "console in English");
  check((await page.inputValue("#settings-keepalive")) === "15", "saved values shown");
  const english = await page.textContent('label[for="settings-language-English.wul"]');
  check(english.includes("English") && english.includes("English.wul"), `language lines: ${english}`);
  await visitorSees("en", "Location");

  // The built-in Korean: the console and the next visitor's page speak it at once.
  check((await save(() => page.check("#settings-language-built-in"))).ok(), "language saved");
  await waitForText('.tabs a[href="#settings"]', "설정");
  check((await tabText("home")) === "홈", "every tab retranslated");
  check((await page.textContent("#settings-title")) === "설정", "view heading retranslated");
  await visitorSees("ko", "현재 위치");

  // A value out of bounds is refused beside its field, in the new language, and not saved.
  const refused = await save(
    () => page.fill("#settings-keepalive", "0"),
    () => page.press("#settings-keepalive", "Tab"),
  );
  check(refused.status() === 400, "bad time-out refused");
  const refusal = await page.textContent("#settings-server .field-error");
  check(refusal.includes("3600") && refusal.includes("정수"), `refusal beside the field: ${refusal}`);
  check((await page.getAttribute("#settings-keepalive", "aria-invalid")) === "true", "field marked");

  // And back to English, the same way.
  await save(() => page.check('[id="settings-language-English.wul"]'));
  await waitForText('.tabs a[href="#settings"]', "Settings");
  // The tabs may follow the event stream before the form is filled again: the refusal goes
  // with its value, and the saved value comes back.
  await page.waitForFunction(
    () =>
      document.querySelector("#settings-server .field-error") === null &&
      document.getElementById("settings-keepalive").value === "15",
  );
  await visitorSees("en", "Location");

  // The address the visitors are told follows the host name as soon as it is worked out.
  if (await page.isChecked("#settings-public")) await save(() => page.uncheck("#settings-public"));
  await save(() => page.check("#settings-use-host"));
  await save(() => page.fill("#settings-host", "share.example.org"), () => page.press("#settings-host", "Tab"));
  await waitForText("#settings-address-now", "share.example.org");

  // A phone's width: one column, nothing wider than the screen.
  await checkFitsPhone(page, "settings", 375);
});
