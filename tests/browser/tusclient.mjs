// A resumable-upload client that nobody here wrote (tus-js-client from npm) against the real
// program: a connection cut in the middle of a PATCH resumes by itself, and an upload
// abandoned halfway resumes after the program was restarted. Every file must arrive
// byte-exact.
//
// Environment: LUMIDROP_BINARY (the program).

import crypto from "node:crypto";
import fs from "node:fs";
import net from "node:net";
import path from "node:path";
import { Upload } from "tus-js-client";
import { check, runSteps, scratchHome, startProgram, stopProgram } from "./harness.mjs";

const { scratch, home, at } = scratchHome({
  mounts: { docs: "share" },
  settings: ["authorities+=.anonymous|docs|7"],
});
const share = at("share");
const MiB = 1024 * 1024;

// Passes connections through to the program, cutting the one that carries the byte at
// `cutAt` of all bytes sent to it: a network that fails once in the middle of a request.
function flakyProxy(port, cutAt) {
  let forwarded = 0;
  const server = net.createServer((client) => {
    const upstream = net.connect(port, "127.0.0.1");
    client.on("data", (bytes) => {
      const before = forwarded;
      forwarded += bytes.length;
      if (before < cutAt && forwarded >= cutAt) {
        upstream.write(bytes.subarray(0, cutAt - before));
        client.destroy();
        upstream.destroy();
        return;
      }
      upstream.write(bytes);
    });
    upstream.on("data", (bytes) => client.write(bytes));
    for (const end of [client, upstream]) end.on("error", () => {});
    client.on("close", () => upstream.destroy());
    upstream.on("close", () => client.destroy());
  });
  return new Promise((resolve) => server.listen(0, "127.0.0.1", () => resolve(server)));
}

// Uploads `bytes` as `name`; `options` may resume an upload (uploadUrl) or stop it early
// (stopAt: aborted once that many bytes were sent, in the middle of a PATCH).
function send(endpoint, name, bytes, options = {}) {
  return new Promise((resolve, reject) => {
    const upload = new Upload(bytes, {
      endpoint,
      uploadUrl: options.uploadUrl ?? null,
      chunkSize: 2 * MiB,
      retryDelays: [0, 50, 100, 200, 400, 800],
      metadata: { filename: name },
      onProgress(sent) {
        if (options.stopAt && sent >= options.stopAt) {
          upload.abort().then(() => resolve({ url: upload.url, stopped: true }));
        }
      },
      onError: reject,
      onSuccess: () => resolve({ url: upload.url, stopped: false }),
    });
    upload.start();
  });
}

let program = startProgram(home);
await runSteps(scratch, () => stopProgram(program.child), async () => {
  let base = `http://127.0.0.1:${await program.port}`;

  const first = crypto.randomBytes(7 * MiB + 12345);
  const proxy = await flakyProxy(await program.port, 3 * MiB + 777);
  const proxied = `http://127.0.0.1:${proxy.address().port}/docs/?action=tus`;
  const done = await send(proxied, "cut.bin", first);
  proxy.close();
  check(!done.stopped, "the cut upload finished");
  check(fs.readFileSync(path.join(share, "cut.bin")).equals(first), "cut.bin arrived byte-exact");

  const second = crypto.randomBytes(9 * MiB + 3);
  const half = await send(`${base}/docs/?action=tus`, "restart.bin", second, { stopAt: 4 * MiB + 100 });
  check(half.stopped && half.url, "the second upload stopped halfway");
  check(!fs.existsSync(path.join(share, "restart.bin")), "half an upload is not in place");

  await stopProgram(program.child);
  program = startProgram(home);
  base = `http://127.0.0.1:${await program.port}`;
  const address = new URL(half.url);
  const resumed = await send(`${base}/docs/?action=tus`, "restart.bin", second, {
    uploadUrl: `${base}${address.pathname}${address.search}`,
  });
  check(!resumed.stopped, "the restarted upload finished");
  check(fs.readFileSync(path.join(share, "restart.bin")).equals(second), "restart.bin arrived byte-exact");
  const left = fs.readdirSync(share).filter((name) => name.startsWith("uploading_"));
  check(left.length === 0, `no temporary files are left: ${left}`);
});
