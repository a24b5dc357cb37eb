// Keep-alive as a browser lives it: headless Debian Chromium, driven by playwright-core,
// opens a listing of twenty files against the real program. The page and its skin files
// must travel over a few kept-alive connections, not one each (by Chromium's connection
// ids), and a reload must take the skin files from the cache or revalidate them (304), not
// fetch them again.
//
// Environment: LUMIDROP_BINARY (the program).

import { check, runBrowserTest, scratchHome } from "./harness.mjs";

// What a browser may open to one host over HTTP/1.1.
const maxConnectionsPerHost = 6;

// Records what one page load asked for, over the DevTools protocol: every request, its
// answer and whether the cache answered it. A revalidated answer is reported as the cached
// 200 it turned into; `wireStatus` is what the server really sent (304).
async function recordNetwork(page) {
  const cdp = await page.context().newCDPSession(page);
  await cdp.send("Network.enable");
  const record = new Map();
  const entry = (id) => record.get(id) ?? record.set(id, { fromCache: false }).get(id);
  cdp.on("Network.requestWillBeSent", ({ requestId, request }) => (entry(requestId).url = request.url));
  cdp.on("Network.requestServedFromCache", ({ requestId }) => (entry(requestId).fromCache = true));
  cdp.on("Network.responseReceived", ({ requestId, response }) => {
    const seen = entry(requestId);
    seen.status = response.status;
    seen.connectionId = response.connectionId;
    seen.fromCache ||= response.fromDiskCache;
  });
  cdp.on("Network.responseReceivedExtraInfo", ({ requestId, statusCode }) => {
    entry(requestId).wireStatus = statusCode;
  });
  return {
    take() {
      const taken = [...record.values()].filter((seen) => seen.status !== undefined);
      record.clear();
      return taken;
    },
  };
}

const files = { "files/a folder/": "" };
for (let i = 1; i <= 20; i += 1) {
  const name = `file ${String(i).padStart(2, "0")}.${["txt", "bin", "png", "zip"][i % 4]}`;
  files[`files/${name}`] = `file number ${i}\n`.repeat(i);
}

await runBrowserTest(scratchHome({ mounts: { files: "files" }, files }), async ({ page, base }) => {
  const network = await recordNetwork(page);

  await page.goto(`${base}/files/`, { waitUntil: "networkidle" });
  check((await page.locator("tbody.entries tr.file").count()) === 20, "twenty files listed");
  const first = network.take();
  const skinFiles = first.filter((seen) => seen.url.includes("action=SkinFile"));
  const failures = first.filter((seen) => seen.status !== 200);
  check(failures.length === 0, `every request answered 200: ${JSON.stringify(failures)}`);
  const connections = new Set(first.map((seen) => seen.connectionId));
  check(first.length >= 8, `the page pulled its skin files: ${first.length} requests`);
  check(connections.size < first.length, "some connection carried more than one request");
  check(connections.size <= maxConnectionsPerHost, `${connections.size} connections`);

  // Chromium revalidates the page itself on a reload; its skin files carry ETag and
  // max-age, so they come from the cache or, asked again, as 304 without a body.
  await page.reload({ waitUntil: "networkidle" });
  const second = network.take();
  const skinAgain = second.filter((seen) => seen.url.includes("action=SkinFile"));
  check(skinAgain.length >= skinFiles.length, `skin files asked again: ${skinAgain.length}`);
  const refetched = skinAgain.filter((seen) => !seen.fromCache && seen.wireStatus !== 304);
  check(refetched.length === 0, `skin files fetched again: ${JSON.stringify(refetched)}`);
  const listing = second.find((seen) => seen.url === `${base}/files/`);
  check(listing?.wireStatus === 200, "the listing itself is fetched again");
  console.log("browser keep-alive test passed");
});
