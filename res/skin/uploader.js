/*
 * Korvel Lumidrop, built-in skin: the listing's uploader.
 *
 * Files go up in pieces through the resumable upload endpoint ("?action=tus" on the target
 * folder): one request creates the upload, then each piece is appended at the offset the
 * server holds. A piece is at most 8 MiB, so a proxy that cuts long requests never sees a
 * long one, and a dropped connection costs at most one piece: the uploader asks the server
 * for its offset and goes on from there, again and again, with growing pauses between
 * attempts. Each unfinished upload's address is kept in localStorage under the file's
 * folder, name, size and date, so the same file picked again after a reload resumes.
 *
 * This script runs before common.js and takes the page's upload form by removing its
 * data-upload-path, which is what common.js wires its multipart uploader to. Without
 * scripts the form posts as before, and the upload window stays multipart.
 *
 * Translated when the skin loads: its texts are translation directives, and nothing else
 * here may look like the template language (no hash sign, no dollar sign).
 */
(function () {
  "use strict";

  var TEXT = {
    chooseFolder: #QU("폴더 올리기"),
    pauseAll: #QU("모두 일시 정지"),
    resumeAll: #QU("모두 계속"),
    pause: #QU("일시 정지"),
    resume: #QU("계속"),
    cancel: #QU("취소"),
    queued: #QU("올리기 대기"),
    paused: #QU("일시 정지됨"),
    done: #QU("올렸습니다."),
    cancelled: #QU("업로드를 취소했습니다."),
    makingFolders: #QU("폴더를 만드는 중…"),
    progress: #QU("{sent} / {total} · {speed}/s · 남은 시간 {left}"),
    progressStarting: #QU("{sent} / {total}"),
    retrying: #QU("연결이 끊겼습니다. {seconds}초 뒤에 이어서 올립니다."),
    refused: #QU("서버가 업로드를 거부했습니다 ({status})."),
    notAllowed: #QU("이 폴더에 올릴 권한이 없습니다."),
    tooLarge: #QU("파일이 너무 커서 올릴 수 없습니다."),
    summary: #QU("파일 {total}개 중 {done}개 완료"),
    refresh: #QU("목록 새로 고침"),
    stillRunning: #QU("업로드가 진행 중입니다. 이 페이지를 떠나면 업로드가 중단됩니다.")
  };

  var CHUNK = 8 * 1024 * 1024;
  var PARALLEL = 3;
  // Milliseconds before the next attempt; the last one repeats for as long as it takes (a
  // phone asleep for an hour should still finish when it wakes).
  var RETRY_DELAYS = [1000, 2000, 4000, 8000, 15000, 30000];
  var STORE = "lumidrop.uploads";
  // The server forgets an upload left alone for a day.
  var KEEP_MS = 24 * 3600 * 1000;

  // common.js runs after this script; its helpers are there by the time anything is shown.
  function fillIn(template, values) {
    return window.Lumidrop.fillIn(template, values);
  }

  function formatBytes(bytes) {
    return window.Lumidrop.formatBytes(bytes);
  }

  function formatDuration(seconds) {
    if (!isFinite(seconds) || seconds < 0) return "";
    var s = Math.ceil(seconds);
    var h = Math.floor(s / 3600);
    var m = Math.floor((s % 3600) / 60);
    var rest = s % 60;
    var two = function (n) { return (n < 10 ? "0" : "") + n; };
    return (h > 0 ? h + ":" + two(m) : String(m)) + ":" + two(rest);
  }

  function element(tag, className, text) {
    var node = document.createElement(tag);
    if (className) node.className = className;
    if (text !== undefined) node.textContent = text;
    return node;
  }

  function button(label, className) {
    var node = element("button", "button " + className, label);
    node.type = "button";
    return node;
  }

  // Upload-Metadata values are base64 of the UTF-8 bytes.
  function base64(text) {
    var bytes = new TextEncoder().encode(text);
    var binary = "";
    for (var i = 0; i < bytes.length; i++) binary += String.fromCharCode(bytes[i]);
    return window.btoa(binary);
  }

  // The folder address below `base` ("/music/") for the folder names in `dirs`.
  function folderAddress(base, dirs) {
    return base + dirs.map(function (name) { return encodeURIComponent(name) + "/"; }).join("");
  }

  // ---------------------------------------------------------------------------------
  // Unfinished uploads, remembered across reloads. A browser that refuses storage (a
  // private window) simply resumes nothing after a reload.

  function readStore() {
    try {
      var kept = JSON.parse(window.localStorage.getItem(STORE) || "{}");
      return kept && typeof kept === "object" ? kept : {};
    } catch (e) {
      return {};
    }
  }

  function writeStore(kept) {
    try {
      window.localStorage.setItem(STORE, JSON.stringify(kept));
    } catch (e) {
      // full or refused: the upload still runs, it just cannot be resumed after a reload
    }
  }

  function remembered(key) {
    var kept = readStore();
    var entry = kept[key];
    return entry && typeof entry.url === "string" && Date.now() - entry.at < KEEP_MS ? entry.url : null;
  }

  function remember(key, url) {
    var kept = readStore();
    var now = Date.now();
    Object.keys(kept).forEach(function (name) {
      if (!kept[name] || now - kept[name].at >= KEEP_MS) delete kept[name];
    });
    if (url) kept[key] = { url: url, at: now }; else delete kept[key];
    writeStore(kept);
  }

  // A Location is read against the request it answers (it may be as short as
  // "?action=tus&id=..."), and only an address of this server is followed: one elsewhere
  // would send the file to someone else.
  function sameOriginAddress(location, requested) {
    if (!location) return null;
    try {
      var url = new URL(location, new URL(requested, window.location.href));
      return url.origin === window.location.origin ? url.pathname + url.search : null;
    } catch (e) {
      return null;
    }
  }

  // ---------------------------------------------------------------------------------
  // One file

  function Upload(queue, file, folder, shownName) {
    this.queue = queue;
    this.file = file;
    this.folder = folder;
    this.key = [folder, file.name, file.size, file.lastModified].join("\n");
    this.url = null;
    this.offset = 0;
    this.state = "queued";
    this.request = null;
    this.timer = null;
    this.failures = 0;
    this.buildRow(shownName);
    this.show(TEXT.queued);
  }

  Upload.prototype.buildRow = function (shownName) {
    var self = this;
    this.row = element("li", "queue-row");
    var line = element("div", "queue-line");
    line.appendChild(element("span", "queue-name", shownName));
    this.toggle = button(TEXT.pause, "queue-toggle");
    this.stop = button(TEXT.cancel, "queue-cancel");
    line.appendChild(this.toggle);
    line.appendChild(this.stop);
    this.bar = element("div", "progress-bar");
    this.bar.setAttribute("role", "progressbar");
    this.bar.setAttribute("aria-valuemin", "0");
    this.bar.setAttribute("aria-valuemax", "100");
    this.fill = element("span", "progress-fill");
    this.bar.appendChild(this.fill);
    this.status = element("div", "queue-status");
    this.row.appendChild(line);
    this.row.appendChild(this.bar);
    this.row.appendChild(this.status);
    this.toggle.addEventListener("click", function () {
      if (self.state === "paused") self.resume(); else self.pause();
    });
    this.stop.addEventListener("click", function () {
      self.cancel();
    });
  };

  Upload.prototype.setState = function (state) {
    this.state = state;
    this.row.className = "queue-row is-" + state;
    var over = state === "done" || state === "failed" || state === "cancelled";
    this.toggle.hidden = over;
    this.stop.hidden = over;
    this.toggle.textContent = state === "paused" ? TEXT.resume : TEXT.pause;
  };

  Upload.prototype.show = function (text) {
    this.status.textContent = text;
  };

  Upload.prototype.showBytes = function (sent) {
    var size = this.file.size;
    var percent = size > 0 ? Math.min(100, (sent / size) * 100) : 100;
    this.fill.style.width = percent + "%";
    this.bar.setAttribute("aria-valuenow", String(Math.floor(percent)));
    this.row.setAttribute("data-sent", String(sent));
    var now = Date.now();
    // The speed is smoothed over seconds, or one slow piece would swing the time left.
    if (!this.sample || sent < this.sample.sent) {
      this.sample = { at: now, sent: sent };
    } else if (now - this.sample.at >= 1000) {
      var speed = ((sent - this.sample.sent) * 1000) / (now - this.sample.at);
      this.speed = this.speed ? 0.7 * this.speed + 0.3 * speed : speed;
      this.sample = { at: now, sent: sent };
    }
    if (this.state !== "running") return;
    this.show(fillIn(this.speed ? TEXT.progress : TEXT.progressStarting, {
      sent: formatBytes(sent),
      total: formatBytes(size),
      speed: formatBytes(this.speed),
      left: formatDuration((size - sent) / this.speed)
    }));
  };

  // Every exchange with the server: `done(status, xhr)` gets 0 when the network failed.
  // An answer to a request that was given up (paused, cancelled) is ignored.
  Upload.prototype.send = function (method, url, headers, body, done) {
    var self = this;
    var xhr = new XMLHttpRequest();
    this.request = xhr;
    xhr.open(method, url);
    xhr.setRequestHeader("Tus-Resumable", "1.0.0");
    Object.keys(headers).forEach(function (name) {
      xhr.setRequestHeader(name, headers[name]);
    });
    var settle = function (status) {
      if (self.request !== xhr) return;
      self.request = null;
      done(status, xhr);
    };
    xhr.onload = function () { settle(xhr.status); };
    xhr.onerror = function () { settle(0); };
    xhr.ontimeout = function () { settle(0); };
    if (body) {
      xhr.upload.onprogress = function (event) {
        if (self.request === xhr) self.showBytes(self.offset + event.loaded);
      };
    }
    xhr.send(body || null);
  };

  Upload.prototype.start = function () {
    this.setState("running");
    this.sample = null;
    this.speed = 0;
    if (!this.url) this.url = remembered(this.key);
    if (this.url) this.locate(); else this.create();
  };

  Upload.prototype.create = function () {
    var self = this;
    var metadata = "filename " + base64(this.file.name);
    if (this.file.type) metadata += ",filetype " + base64(this.file.type);
    var creation = this.folder + "?action=tus";
    this.send("POST", creation,
              { "Upload-Length": String(this.file.size), "Upload-Metadata": metadata }, null,
              function (status, xhr) {
                if (status !== 201) return self.refused(status);
                self.url = sameOriginAddress(xhr.getResponseHeader("Location") || "", creation);
                if (!self.url) return self.fail(fillIn(TEXT.refused, { status: status }));
                remember(self.key, self.url);
                self.offset = 0;
                self.failures = 0;
                self.next();
              });
  };

  // Where the server stands: after a reload, a pause or a lost connection.
  Upload.prototype.locate = function () {
    var self = this;
    this.send("HEAD", this.url, { "Cache-Control": "no-store" }, null, function (status, xhr) {
      if (status === 404 || status === 410) return self.restart();
      if (status < 200 || status >= 300) return self.refused(status);
      var offset = Number(xhr.getResponseHeader("Upload-Offset"));
      if (!isFinite(offset) || offset < 0 || offset > self.file.size) return self.restart();
      self.offset = offset;
      self.failures = 0;
      self.next();
    });
  };

  // The server no longer knows the upload (expired, or finished and renamed away while
  // the answer was lost): start over rather than fail.
  Upload.prototype.restart = function () {
    remember(this.key, null);
    this.url = null;
    this.offset = 0;
    this.create();
  };

  Upload.prototype.next = function () {
    var self = this;
    this.showBytes(this.offset);
    if (this.file.size === 0) return this.sendEmpty();
    if (this.offset >= this.file.size) return this.finish();
    var end = Math.min(this.file.size, this.offset + CHUNK);
    this.send("PATCH", this.url,
              { "Upload-Offset": String(this.offset),
                "Content-Type": "application/offset+octet-stream" },
              this.file.slice(this.offset, end),
              function (status, xhr) {
                if (status === 409) return self.locate();
                if (status === 404 || status === 410) return self.restart();
                if (status !== 204 && status !== 200) return self.refused(status);
                var offset = Number(xhr.getResponseHeader("Upload-Offset"));
                self.offset = isFinite(offset) && offset > self.offset ? offset : end;
                self.failures = 0;
                self.next();
              });
  };

  // An empty file is complete once created, but a server may still want the one empty
  // piece that says so; one that finished it already has forgotten it.
  Upload.prototype.sendEmpty = function () {
    var self = this;
    this.send("PATCH", this.url,
              { "Upload-Offset": "0", "Content-Type": "application/offset+octet-stream" }, null,
              function (status) {
                if (status === 204 || status === 200 || status === 404 || status === 410) {
                  return self.finish();
                }
                self.refused(status);
              });
  };

  // Network failures and a busy or failing server are waited out; a refusal is final.
  Upload.prototype.refused = function (status) {
    if (status === 0 || status === 423 || status === 429 || status >= 500) return this.retry();
    remember(this.key, null);
    if (status === 401 || status === 403) return this.fail(TEXT.notAllowed);
    if (status === 413) return this.fail(TEXT.tooLarge);
    this.fail(fillIn(TEXT.refused, { status: status }));
  };

  Upload.prototype.retry = function () {
    var self = this;
    var delay = RETRY_DELAYS[Math.min(this.failures, RETRY_DELAYS.length - 1)];
    this.failures += 1;
    this.setState("waiting");
    this.show(fillIn(TEXT.retrying, { seconds: Math.round(delay / 1000) }));
    this.timer = window.setTimeout(function () { self.wake(); }, delay);
  };

  Upload.prototype.wake = function () {
    if (this.state !== "waiting") return;
    window.clearTimeout(this.timer);
    this.timer = null;
    this.start();
  };

  Upload.prototype.halt = function () {
    window.clearTimeout(this.timer);
    this.timer = null;
    var xhr = this.request;
    this.request = null;
    if (xhr) xhr.abort();
  };

  Upload.prototype.pause = function () {
    if (this.state !== "running" && this.state !== "waiting" && this.state !== "queued") return;
    this.halt();
    this.setState("paused");
    this.show(TEXT.paused);
    this.queue.pump();
  };

  Upload.prototype.resume = function () {
    if (this.state !== "paused") return;
    this.setState("queued");
    this.show(TEXT.queued);
    this.queue.pump();
  };

  Upload.prototype.cancel = function () {
    if (this.state === "done" || this.state === "cancelled" || this.state === "failed") return;
    this.halt();
    if (this.url) this.send("DELETE", this.url, {}, null, function () {});
    this.request = null;
    remember(this.key, null);
    this.setState("cancelled");
    this.show(TEXT.cancelled);
    this.queue.pump();
  };

  Upload.prototype.finish = function () {
    remember(this.key, null);
    this.setState("done");
    this.fill.style.width = "100%";
    this.show(TEXT.done);
    this.queue.pump();
  };

  Upload.prototype.fail = function (message) {
    this.setState("failed");
    this.show(message);
    this.queue.pump();
  };

  // ---------------------------------------------------------------------------------
  // The queue: a few files at a time, in the order they came

  function Queue(box, base) {
    var self = this;
    this.base = base;
    this.items = [];
    this.box = box;
    var head = element("div", "queue-head");
    this.summary = element("span", "queue-summary");
    this.pauseAll = button(TEXT.pauseAll, "queue-pause-all");
    this.resumeAll = button(TEXT.resumeAll, "queue-resume-all");
    head.appendChild(this.summary);
    head.appendChild(this.pauseAll);
    head.appendChild(this.resumeAll);
    this.note = element("div", "queue-note");
    this.note.hidden = true;
    this.rows = element("ul", "queue-rows");
    box.appendChild(head);
    box.appendChild(this.note);
    box.appendChild(this.rows);
    this.pauseAll.addEventListener("click", function () {
      self.items.forEach(function (item) { item.pause(); });
    });
    this.resumeAll.addEventListener("click", function () {
      self.items.forEach(function (item) { item.resume(); });
    });
    window.addEventListener("online", function () {
      self.items.forEach(function (item) { item.wake(); });
    });
    window.addEventListener("beforeunload", function (event) {
      if (!self.isBusy()) return undefined;
      event.preventDefault();
      event.returnValue = TEXT.stillRunning;
      return TEXT.stillRunning;
    });
  }

  Queue.prototype.isBusy = function () {
    return this.items.some(function (item) {
      return item.state === "running" || item.state === "waiting" || item.state === "queued";
    });
  };

  // `found` holds { file, dirs }: the folder names between this listing and the file.
  Queue.prototype.add = function (found) {
    var self = this;
    this.box.hidden = false;
    found.forEach(function (one) {
      var shown = one.dirs.concat([one.file.name]).join("/");
      var item = new Upload(self, one.file, folderAddress(self.base, one.dirs), shown);
      self.items.push(item);
      self.rows.appendChild(item.row);
    });
    this.pump();
  };

  Queue.prototype.pump = function () {
    var running = 0;
    var done = 0;
    var failed = 0;
    this.items.forEach(function (item) {
      if (item.state === "running" || item.state === "waiting") running += 1;
      if (item.state === "done") done += 1;
      if (item.state === "failed") failed += 1;
    });
    for (var i = 0; i < this.items.length && running < PARALLEL; i++) {
      if (this.items[i].state === "queued") {
        running += 1;
        this.items[i].start();
      }
    }
    this.summary.textContent = fillIn(TEXT.summary, { done: done, total: this.items.length });
    if (this.isBusy() || this.items.some(function (item) { return item.state === "paused"; })) {
      return;
    }
    if (done > 0 && failed === 0) {
      window.location.reload();  // the listing with the new files
    } else if (done > 0 && !this.refreshLink) {
      this.refreshLink = element("a", "queue-refresh", TEXT.refresh);
      this.refreshLink.href = window.location.pathname + window.location.search;
      this.summary.parentNode.appendChild(this.refreshLink);
    }
  };

  // Folders are made before their files go up, parents first, one at a time. A folder
  // that is already there is fine; one that cannot be made shows as its files' refusals.
  Queue.prototype.makeFolders = function (folders) {
    var self = this;
    if (folders.length === 0) return Promise.resolve();
    this.box.hidden = false;
    this.note.textContent = TEXT.makingFolders;
    this.note.hidden = false;
    return folders.reduce(function (before, dirs) {
      return before.then(function () {
        var parent = folderAddress(self.base, dirs.slice(0, -1));
        return window.fetch(parent + "?action=MakeDirectory", {
          method: "POST",
          credentials: "same-origin",
          redirect: "manual",
          headers: { "Content-Type": "application/x-www-form-urlencoded" },
          body: "name=" + encodeURIComponent(dirs[dirs.length - 1])
        }).catch(function () {});
      });
    }, Promise.resolve()).then(function () {
      self.note.hidden = true;
    });
  };

  Queue.prototype.addTree = function (tree) {
    var self = this;
    return this.makeFolders(tree.folders).then(function () {
      self.add(tree.files);
    });
  };

  // ---------------------------------------------------------------------------------
  // What the visitor gives: picked files, a picked folder, or a drop of files and folders

  function readAll(reader) {
    var entries = [];
    return new Promise(function (resolve) {
      (function more() {
        // A folder's entries come in batches until an empty one.
        reader.readEntries(function (batch) {
          if (batch.length === 0) return resolve(entries);
          entries = entries.concat(Array.prototype.slice.call(batch));
          more();
        }, function () { resolve(entries); });
      })();
    });
  }

  function walk(entry, dirs, tree) {
    if (entry.isFile) {
      return new Promise(function (resolve) {
        entry.file(function (file) {
          tree.files.push({ file: file, dirs: dirs });
          resolve();
        }, function () { resolve(); });
      });
    }
    if (!entry.isDirectory) return Promise.resolve();
    var here = dirs.concat([entry.name]);
    tree.folders.push(here);
    return readAll(entry.createReader()).then(function (children) {
      return children.reduce(function (before, child) {
        return before.then(function () { return walk(child, here, tree); });
      }, Promise.resolve());
    });
  }

  // The entries must be taken while the drop event lasts; they are read afterwards.
  function treeOfDrop(transfer) {
    var tree = { files: [], folders: [] };
    var entries = [];
    var items = transfer.items || [];
    for (var i = 0; i < items.length; i++) {
      var entry = items[i].kind === "file" && items[i].webkitGetAsEntry ? items[i].webkitGetAsEntry() : null;
      if (entry) entries.push(entry);
    }
    if (entries.length === 0) {
      Array.prototype.forEach.call(transfer.files || [], function (file) {
        tree.files.push({ file: file, dirs: [] });
      });
      return Promise.resolve(tree);
    }
    return entries.reduce(function (before, entry) {
      return before.then(function () { return walk(entry, [], tree); });
    }, Promise.resolve()).then(function () { return tree; });
  }

  // A folder picked with the folder chooser: each file knows its path below it.
  function treeOfPicks(files) {
    var tree = { files: [], folders: [] };
    var seen = {};
    Array.prototype.forEach.call(files, function (file) {
      var parts = (file.webkitRelativePath || file.name).split("/").filter(Boolean);
      var dirs = parts.slice(0, -1);
      for (var depth = 1; depth <= dirs.length; depth++) {
        var key = dirs.slice(0, depth).join("/");
        if (!seen[key]) {
          seen[key] = true;
          tree.folders.push(dirs.slice(0, depth));
        }
      }
      tree.files.push({ file: file, dirs: dirs });
    });
    return tree;
  }

  function takeForm(form) {
    var base = form.getAttribute("data-upload-path");
    var box = form.querySelector(".upload-queue");
    // A folder of this server only ("/music/"), never "//elsewhere/".
    if (!box || !/^\/(?:[^\/?\\\s]+\/)*$/.test(base || "")) return;
    form.removeAttribute("data-upload-path");
    form.setAttribute("data-resumable", "");
    var queue = new Queue(box, base);
    var input = form.querySelector("input[type=file]");

    // Folders have their own chooser; it exists only where scripts run, like the walk.
    var folders = element("input", "tool-folder");
    folders.type = "file";
    folders.hidden = true;
    folders.setAttribute("webkitdirectory", "");
    folders.multiple = true;
    var chooseFolder = button(TEXT.chooseFolder, "choose-folder");
    var submit = form.querySelector("button[type=submit]");
    submit.parentNode.insertBefore(chooseFolder, submit.nextSibling);
    submit.parentNode.insertBefore(folders, chooseFolder);
    chooseFolder.addEventListener("click", function () { folders.click(); });
    folders.addEventListener("change", function () {
      queue.addTree(treeOfPicks(folders.files));
      folders.value = "";
    });

    form.addEventListener("submit", function (event) {
      event.preventDefault();
      var picked = Array.prototype.map.call(input.files || [], function (file) {
        return { file: file, dirs: [] };
      });
      input.value = "";
      queue.add(picked);
    });
    // Drops go through common.js, which has run by the time the page is ready.
    var acceptDrops = function () {
      window.Lumidrop.acceptDrops(function (transfer) {
        treeOfDrop(transfer).then(function (tree) { return queue.addTree(tree); });
      });
    };
    if (window.Lumidrop) acceptDrops();
    else document.addEventListener("DOMContentLoaded", acceptDrops);
  }

  var form = document.querySelector("form.upload-form[data-upload-path]");
  var able = window.XMLHttpRequest && window.Promise && window.fetch && window.TextEncoder &&
             window.Blob && window.Blob.prototype.slice;
  if (form && able) takeForm(form);
})();
