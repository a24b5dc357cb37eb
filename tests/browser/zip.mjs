// The default skin's zip downloads in headless Chromium: the folder's link and a selection
// of ticked entries (a folder among them) each arrive as one archive that Python's zipfile
// reads back byte for byte, without the hidden file. A name that is not UTF-8 is ticked and
// zipped as the bytes it has on disk.
//
// Environment: LUMIDROP_BINARY (the program).

import { execFileSync } from "node:child_process";
import crypto from "node:crypto";
import fs from "node:fs";
import path from "node:path";

import { check, runBrowserTest, scratchHome } from "./harness.mjs";

const files = {
  "a b.txt": "first",
  "bad\xff.txt": "not UTF-8",
  "c&d.txt": "second",
  "sub/inner.bin": crypto.randomBytes(300000),
};
// Names are given here a character per byte, which is how the archive's names are read back.
const shared = Object.fromEntries(Object.entries(files).map(([name, bytes]) => [`shared/${name}`, bytes]));
delete shared["shared/bad\xff.txt"];
const { scratch, home, at } = scratchHome({
  mounts: { docs: "shared" },
  files: { ...shared, "shared/.secret": "hidden" },
});
fs.writeFileSync(Buffer.from(path.join(at("shared"), "bad\xff.txt"), "latin1"), files["bad\xff.txt"]);

// Every file entry of the archive, as name (a character per byte) -> SHA-256 of its bytes,
// in name order.
function archiveDigests(file) {
  const script =
    "import hashlib,json,sys,zipfile\n" +
    "z=zipfile.ZipFile(sys.argv[1])\n" +
    "raw=lambda i: i.filename.encode('utf-8' if i.flag_bits & 0x800 else 'cp437').decode('latin1')\n" +
    "print(json.dumps({raw(i): hashlib.sha256(z.read(i)).hexdigest() for i in z.infolist() if not i.is_dir()}, sort_keys=True))";
  return JSON.parse(execFileSync("python3", ["-c", script, file]).toString());
}

// A folder's archive unpacks into one folder of its name; a selection's unpacks in place.
function expectArchive(digests, prefix, names, what) {
  const want = Object.fromEntries(
    names.map((name) => [`${prefix}${name}`, crypto.createHash("sha256").update(files[name]).digest("hex")]),
  );
  check(JSON.stringify(digests) === JSON.stringify(want), `${what}: ${JSON.stringify(digests)}`);
}

await runBrowserTest({ home, scratch }, async ({ page, base }) => {
  await page.goto(`${base}/docs/`);
  const selection = page.locator("form.zip-selection");
  check(await selection.isHidden(), "the selection's button waits for a tick");

  const [whole] = await Promise.all([page.waitForEvent("download"), page.click("a.zip-folder")]);
  check(whole.suggestedFilename() === "docs.zip", `named after the folder: ${whole.suggestedFilename()}`);
  const everything = ["a b.txt", "bad\xff.txt", "c&d.txt", "sub/inner.bin"];
  expectArchive(archiveDigests(await whole.path()), "docs/", everything, "the folder");

  await page.locator('input.plugin-pick[value="c&d.txt"]').check();
  await page.locator('input.plugin-pick[value="sub"]').check();
  await page.locator('input.plugin-pick[value="bad\ufffd.txt"]').check();
  const [picked] = await Promise.all([page.waitForEvent("download"), selection.locator("button").click()]);
  const ticked = ["bad\xff.txt", "c&d.txt", "sub/inner.bin"];
  expectArchive(archiveDigests(await picked.path()), "", ticked, "the selection");
});
