// The console's Home as the owner uses it to tell visitors where to go: headless Debian
// Chromium, driven by playwright-core, against the real program. The visitors' address is
// on show, the copy button puts it on the clipboard (or, when the clipboard says no,
// selects it), and the QR code beside it, photographed off the page, reads back with
// Debian's zbarimg to exactly the address shown, also after the port changes.
//
// Environment: LUMIDROP_BINARY (the program), LUMIDROP_BUILD_DIR (where the screenshots go).

import net from "node:net";
import path from "node:path";

import {
  buildDir, check, checkFitsPhone, openConsole, runBrowserTest, scanQr as scanHomeQr, scratchHome,
} from "./harness.mjs";

const setup = scratchHome({ settings: ["consolePort=0"] });

// A port nobody listens on at this moment.
function freePort() {
  return new Promise((resolve, reject) => {
    const server = net.createServer();
    server.once("error", reject);
    server.listen(0, "0.0.0.0", () => {
      const { port } = server.address();
      server.close(() => resolve(port));
    });
  });
}

const scanQr = (page, name) => scanHomeQr(page, path.join(buildDir, `browser-home-${name}.png`));

await runBrowserTest(setup, async ({ page, port, consoleUrl }) => {
  const { consoleBase, api } = await openConsole(page, consoleUrl);
  // Waits until the image shows the QR code of the address on show, and returns that address.
  const shownQr = async () => {
    await page.waitForFunction(() => {
      const qr = document.getElementById("home-qr");
      const shown = document.getElementById("home-address").textContent;
      return !qr.hidden && qr.complete && qr.naturalWidth > 0 &&
        qr.src.endsWith(`/api/v1/qr?text=${encodeURIComponent(shown)}`);
    });
    return page.textContent("#home-address");
  };

  // The address is the one visitors reach the program at, and its code says the same.
  const first = await shownQr();
  const { address: host } = await api("status");
  check(first === `http://${host}:${port}/`, `visitors' address: ${first}`);
  check((await page.getAttribute("#home-qr", "alt")).includes(first), "image described");
  const scanned = await scanQr(page, "qr");
  check(scanned === first, `QR code reads "${scanned}", page shows "${first}"`);

  // Copied through the clipboard when allowed...
  await page.context().grantPermissions(["clipboard-read", "clipboard-write"], { origin: consoleBase });
  await page.click("#home-copy");
  await page.waitForSelector("#notice:not([hidden])");
  check((await page.evaluate(() => navigator.clipboard.readText())) === first, "address copied");
  // ...and selected for the owner to copy when the clipboard refuses.
  await page.evaluate(() => {
    navigator.clipboard.writeText = () => Promise.reject(new DOMException("no", "NotAllowedError"));
    window.getSelection().removeAllRanges();
  });
  await page.click("#home-copy");
  check((await page.evaluate(() => window.getSelection().toString())) === first, "address selected");

  // A new port makes a new address, and the code follows it.
  const newPort = await freePort();
  await page.fill("#home-port", String(newPort));
  await page.click('#home-port-form button[type="submit"]');
  await page.waitForFunction(
    (p) => document.getElementById("home-address").textContent.includes(`:${p}/`),
    newPort,
  );
  const second = await shownQr();
  check(second === `http://${host}:${newPort}/`, `address after the port change: ${second}`);
  const rescanned = await scanQr(page, "qr-new-port");
  check(rescanned === second, `QR code after the port change reads "${rescanned}"`);

  // Stopped, the address stays with a word that it does not open now.
  await page.click("#home-stop");
  await page.waitForSelector("#home-qr.is-stale");
  await page.waitForFunction(() => document.getElementById("home-state").textContent === "Stopped");
  check((await page.textContent("#home-qr-caption")).includes("stopped"), "stopped caption");
  await page.click("#home-start");
  await page.waitForSelector("#home-qr:not(.is-stale)");

  // At a phone's width the card stacks, nothing runs off the side, and the code stays
  // large enough to scan.
  await checkFitsPhone(page, "home");
  const box = await page.locator("#home-qr").boundingBox();
  check(box.x >= 0 && box.x + box.width <= 390 && box.width >= 200, `QR on a phone: ${JSON.stringify(box)}`);
  check((await scanQr(page, "qr-phone")) === second, "QR code reads on a phone");
  console.log("browser home test passed");
});
