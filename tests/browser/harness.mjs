// What every browser test does around its own steps: starts the real program on a free
// port with the test's home folder, opens a page in headless Debian Chromium, and tidies
// up whatever happens. The process exits 1 when a step throws or the page raises a script
// error, else 0.
//
// Environment: LUMIDROP_BINARY (the program).

import { execFileSync, spawn } from "node:child_process";
import fs from "node:fs";
import os from "node:os";
import path from "node:path";
import readline from "node:readline";
import { chromium } from "playwright-core";

const timeout = 30000;
export const buildDir = process.env.LUMIDROP_BUILD_DIR ?? os.tmpdir();

// A fresh scratch folder holding the test's `home` and whatever it shares: `files` maps
// paths below the scratch folder to their bytes (a path ending in "/" is a folder), `mounts`
// mount names to such folders; mount.ini gets the mounts, English and the `settings` lines.
// `at(...)` names a path below the scratch folder.
export function scratchHome({ mounts = {}, settings = [], files = {} } = {}) {
  const scratch = fs.mkdtempSync(path.join(os.tmpdir(), "lumidrop-browser-"));
  const at = (...parts) => path.join(scratch, ...parts);
  fs.mkdirSync(at("home"));
  for (const folder of Object.values(mounts)) fs.mkdirSync(at(folder), { recursive: true });
  for (const [name, bytes] of Object.entries(files)) {
    fs.mkdirSync(path.dirname(at(name)), { recursive: true });
    if (name.endsWith("/")) fs.mkdirSync(at(name), { recursive: true });
    else fs.writeFileSync(at(name), bytes);
  }
  const lines = Object.entries(mounts).map(([name, folder]) => `mounts+=${name}|${at(folder)}|x|yes|x|no`);
  lines.push("uiLanguageFile=English.wul", ...settings);
  fs.writeFileSync(at("home", "mount.ini"), lines.map((line) => `${line}\r\n`).join(""));
  return { scratch, home: at("home"), at };
}

// A screenshot of the page as it is now, in the build folder.
export function screenshot(page, name, fullPage = false) {
  return page.screenshot({ path: path.join(buildDir, `browser-${name}.png`), fullPage });
}

export function check(condition, what) {
  if (!condition) throw new Error(`check failed: ${what}`);
}

// Opens the owner's console at the address the program printed, which hands over the token,
// and waits for its first view; `api` reads the console's interface with the owner's cookie.
export async function openConsole(page, consoleUrl) {
  const address = await consoleUrl;
  check(address?.includes("/?token="), `console address printed: ${address}`);
  const consoleBase = new URL(address).origin;
  await page.goto(address);
  await page.waitForSelector("body[data-ready=true]");
  const api = async (endpoint) => (await page.request.get(`${consoleBase}/api/v1/${endpoint}`)).json();
  return { consoleBase, api };
}

// Switches the console to one of its views by its tab.
export async function showView(page, name) {
  await page.click(`.tabs a[href="#${name}"]`);
  await page.waitForSelector(`#view-${name}:not([hidden])`);
}

// At a phone's width nothing may run off the side of the page.
export async function checkFitsPhone(page, what, width = 390) {
  await page.setViewportSize({ width, height: 844 });
  const scrollWidth = await page.evaluate(() => document.documentElement.scrollWidth);
  check(scrollWidth <= width, `${what} fits a phone: ${scrollWidth}px`);
}

// Starts the program on a free port; `port` resolves once it listens, `consoleUrl` to the
// owner's console address when the program prints one (null if it exits first).
export function startProgram(home, args = []) {
  const child = spawn(process.env.LUMIDROP_BINARY, ["--home", home, "--port", "0", ...args], {
    stdio: ["ignore", "pipe", "inherit"],
  });
  const lines = readline.createInterface({ input: child.stdout });
  const awaitLine = (pattern, onExit) =>
    new Promise((resolve, reject) => {
      lines.on("line", (line) => {
        const match = pattern.exec(line);
        if (match) resolve(match[1]);
      });
      child.on("exit", (code) => onExit(resolve, reject, code));
    });
  const port = awaitLine(/listening on http:\/\/[^:]+:(\d+)\//, (_, reject, code) =>
    reject(new Error(`program exited with ${code}`)),
  ).then(Number);
  const consoleUrl = awaitLine(/^Owner's console: (http:\/\/\S+)$/, (resolve) => resolve(null));
  return { child, port, consoleUrl };
}

// The program writes its settings as it stops, so its home folder may only go afterwards.
export async function stopProgram(child) {
  if (child.exitCode !== null || child.signalCode !== null) return;
  const exited = new Promise((resolve) => child.once("exit", resolve));
  child.kill("SIGTERM");
  await exited;
}

// What a phone's camera would read off the console's QR image as the page shows it now,
// read by Debian's zbarimg from a screenshot saved as `file`.
export async function scanQr(page, file) {
  await page.locator("#home-qr").screenshot({ path: file });
  try {
    return execFileSync("zbarimg", ["--quiet", "--raw", "-Sbinary", file], {
      stdio: ["ignore", "pipe", "ignore"],
    }).toString();
  } catch (error) {
    return `(zbarimg found nothing: exit ${error.status})`;
  }
}

// Runs `steps()`, then `tidy()` and removes `scratch` (which holds the home folder and the
// shared files) whatever happened, and exits 1 if a step threw or `failed()` says so.
export async function runSteps(scratch, tidy, steps, failed = () => false) {
  let threw = false;
  try {
    await steps();
  } catch (error) {
    threw = true;
    console.error(error);
  } finally {
    await tidy();
    fs.rmSync(scratch, { recursive: true, force: true });
  }
  process.exit(threw || failed() ? 1 : 0);
}

// Runs `steps({ page, base, port, consoleUrl })` against the program started with `home`
// (and any further `args`).
export async function runBrowserTest({ home, scratch, args = [] }, steps) {
  const { child, port: portPromise, consoleUrl } = startProgram(home, args);
  let browser;
  let pageFailed = false;
  const tidy = async () => {
    if (browser) await browser.close();
    await stopProgram(child);
  };
  await runSteps(scratch, tidy, async () => {
    const port = await portPromise;
    browser = await chromium.launch({ executablePath: "/usr/bin/chromium", headless: true });
    const page = await browser.newPage({ viewport: { width: 1280, height: 900 } });
    page.setDefaultTimeout(timeout);
    page.on("pageerror", (error) => {
      pageFailed = true;
      console.error(`page error: ${error.message}`);
    });
    await steps({ page, base: `http://127.0.0.1:${port}`, port, consoleUrl });
  }, () => pageFailed);
}
