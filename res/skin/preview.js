/*
 * The viewer over the listing and the grid view of the default skin.
 *
 * A file opens in the browser's own displays when its type (the row's data-mime, the
 * same type the download is sent with) is one the browser shows: pictures in <img>, sound
 * and video in media elements that seek through byte ranges, PDFs in a frame, and text in
 * a monospace block. Text is fetched and shown with textContent, so that a shared page or
 * script is read, never run; an SVG goes into <img>, where its scripts do not run either.
 * The open file is in the address (#preview=NAME): the address can be shared, and Back
 * closes the viewer.
 */
(function () {
  "use strict";

  var kTextBytes = 1048576;
  var kHashKey = "preview=";
  var kViewKey = "lumidrop.view";

  function kindOf(type) {
    type = (type || "").toLowerCase();
    if (type.indexOf("image/") === 0) return "image";
    if (type.indexOf("video/") === 0) return "video";
    if (type.indexOf("audio/") === 0) return "audio";
    if (type === "application/pdf") return "pdf";
    // Markup goes to the text view too: shown in this page's origin it could run scripts.
    if (type.indexOf("text/") === 0 || type === "application/json") return "text";
    if (/[/+]xml$/.test(type)) return "text";
    return null;
  }

  // The folder's entries in the order the table shows them now (it may have been sorted),
  // after the way up when there is one.
  function listEntries() {
    var entries = [];
    var rows = document.querySelectorAll("tbody.upper tr.folder, tbody.entries tr");
    for (var i = 0; i < rows.length; i++) {
      var link = rows[i].querySelector("a.entry-name");
      if (!link) continue;
      entries.push({
        name: link.textContent,
        href: link.getAttribute("href"),
        link: link,
        folder: rows[i].classList.contains("folder"),
        kind: rows[i].classList.contains("file") ? kindOf(rows[i].getAttribute("data-mime")) : null
      });
    }
    return entries;
  }

  function previewable() {
    return listEntries().filter(function (entry) { return entry.kind !== null; });
  }

  function nameInAddress() {
    var hash = window.location.hash;
    if (hash.indexOf("#" + kHashKey) !== 0) return null;
    try {
      return decodeURIComponent(hash.substring(kHashKey.length + 1));
    } catch (error) {
      return null;
    }
  }

  function addressFor(name) {
    var base = window.location.pathname + window.location.search;
    return name === null ? base : base + "#" + kHashKey + encodeURIComponent(name);
  }

  function Viewer(root) {
    this.root = root;
    this.stage = root.querySelector(".viewer-stage");
    this.title = root.querySelector(".viewer-name");
    this.count = root.querySelector(".viewer-count");
    this.download = root.querySelector(".viewer-download");
    this.cutNote = root.querySelector(".viewer-cut");
    this.failedNote = root.querySelector(".viewer-failed");
    this.prevButton = root.querySelector(".viewer-prev");
    this.nextButton = root.querySelector(".viewer-next");
    this.current = null;
    // Whether the open viewer has an entry of its own in the history, which closing
    // then takes back, so that Back after a close does not open it again.
    this.pushed = false;
    this.returnFocus = null;
    // Answers to a text fetch of a file already left behind are dropped.
    this.generation = 0;

    var viewer = this;
    this.prevButton.addEventListener("click", function () { viewer.step(-1); });
    this.nextButton.addEventListener("click", function () { viewer.step(1); });
    root.querySelector(".viewer-close").addEventListener("click", function () { viewer.close(); });
    root.addEventListener("click", function (event) {
      if (event.target === root || event.target === viewer.stage) viewer.close();
    });
    document.addEventListener("keydown", function (event) { viewer.onKey(event); });
    window.addEventListener("popstate", function () { viewer.follow(); });
    window.addEventListener("hashchange", function () { viewer.follow(); });
  }

  Viewer.prototype.isOpen = function () {
    return !this.root.hidden;
  };

  Viewer.prototype.onKey = function (event) {
    if (!this.isOpen() || event.altKey || event.ctrlKey || event.metaKey) return;
    if (event.key === "Escape") {
      event.preventDefault();
      this.close();
      return;
    }
    // Media controls seek with the arrow keys while they have the focus.
    var tag = event.target && event.target.tagName;
    if (tag === "VIDEO" || tag === "AUDIO" || tag === "INPUT") return;
    if (event.key === "ArrowLeft" || event.key === "ArrowRight") {
      event.preventDefault();
      this.step(event.key === "ArrowLeft" ? -1 : 1);
    }
  };

  // Brings the viewer in line with the address, after Back, Forward or an edited address.
  Viewer.prototype.follow = function () {
    var name = nameInAddress();
    var entry = name === null ? null : findByName(name);
    this.pushed = false;
    if (entry) {
      if (!this.current || this.current.name !== entry.name) this.show(entry);
    } else if (this.isOpen()) {
      this.hide();
    }
  };

  Viewer.prototype.open = function (entry) {
    this.returnFocus = entry.link;
    this.show(entry);
    window.history.pushState({ preview: entry.name }, "", addressFor(entry.name));
    this.pushed = true;
  };

  Viewer.prototype.step = function (by) {
    var entries = previewable();
    if (entries.length === 0 || !this.current) return;
    var at = -1;
    for (var i = 0; i < entries.length; i++) {
      if (entries[i].name === this.current.name) at = i;
    }
    var next = entries[(at + by + entries.length) % entries.length];
    this.show(next);
    window.history.replaceState(window.history.state, "", addressFor(next.name));
  };

  Viewer.prototype.close = function () {
    if (!this.isOpen()) return;
    if (this.pushed) {
      window.history.back();  // popstate hides it
    } else {
      window.history.replaceState(null, "", addressFor(null));
    }
    this.hide();
  };

  Viewer.prototype.hide = function () {
    this.clearStage();
    this.root.hidden = true;
    this.current = null;
    this.pushed = false;
    document.body.classList.remove("has-viewer");
    if (this.returnFocus) this.returnFocus.focus();
    this.returnFocus = null;
  };

  Viewer.prototype.clearStage = function () {
    this.generation++;
    // A media element keeps its connection and buffers until its source is let go.
    var media = this.stage.querySelectorAll("video, audio");
    for (var i = 0; i < media.length; i++) {
      media[i].pause();
      media[i].removeAttribute("src");
      media[i].load();
    }
    this.stage.textContent = "";
    this.cutNote.hidden = true;
    this.failedNote.hidden = true;
  };

  Viewer.prototype.show = function (entry) {
    this.clearStage();
    this.current = entry;
    this.root.hidden = false;
    document.body.classList.add("has-viewer");
    this.title.textContent = entry.name;
    this.download.setAttribute("href", entry.href);
    this.download.setAttribute("download", entry.name);
    var entries = previewable();
    var at = 0;
    for (var i = 0; i < entries.length; i++) {
      if (entries[i].name === entry.name) at = i;
    }
    this.count.textContent = at + 1 + " / " + entries.length;
    this.prevButton.disabled = this.nextButton.disabled = entries.length < 2;
    this.root.setAttribute("data-kind", entry.kind);
    this.stage.appendChild(this.makeDisplay(entry));
    this.root.querySelector(".viewer-close").focus();
  };

  Viewer.prototype.makeDisplay = function (entry) {
    var viewer = this;
    var generation = this.generation;
    // A display let go of may still report its failure later.
    var failed = function () {
      if (generation === viewer.generation) viewer.failedNote.hidden = false;
    };
    var display;
    if (entry.kind === "image") {
      display = document.createElement("img");
      display.alt = entry.name;
    } else if (entry.kind === "video" || entry.kind === "audio") {
      display = document.createElement(entry.kind);
      display.controls = true;
      display.preload = "metadata";
    } else if (entry.kind === "pdf") {
      display = document.createElement("iframe");
      display.title = entry.name;
    } else {
      return this.makeText(entry);
    }
    display.className = "viewer-display";
    display.addEventListener("error", failed);
    display.src = entry.href;
    return display;
  };

  // The first kTextBytes of a file, and whether there is more. The server refuses a range
  // that runs past the end rather than shortening it, so a refusal means a smaller file,
  // which is then asked for whole.
  function readStart(href) {
    var range = { Range: "bytes=0-" + (kTextBytes - 1) };
    return window.fetch(href, { headers: range }).then(function (response) {
      if (response.status === 416) return window.fetch(href).then(readBody);
      return readBody(response);
    });
  }

  function readBody(response) {
    if (!response.ok) throw new Error(String(response.status));
    var whole = /\/(\d+)$/.exec(response.headers.get("Content-Range") || "");
    return response.arrayBuffer().then(function (bytes) {
      var total = whole ? Number(whole[1]) : bytes.byteLength;
      return { bytes: bytes.slice(0, kTextBytes), cut: total > kTextBytes };
    });
  }

  Viewer.prototype.makeText = function (entry) {
    var viewer = this;
    var generation = this.generation;
    var block = document.createElement("pre");
    block.className = "viewer-display viewer-text";
    readStart(entry.href)
      .then(function (answer) {
        if (generation !== viewer.generation) return;
        // "stream" leaves out a character the cut split, instead of showing it broken.
        var text = new TextDecoder("utf-8").decode(answer.bytes, { stream: answer.cut });
        block.textContent = text;
        viewer.cutNote.hidden = !answer.cut;
      })
      .catch(function () {
        if (generation === viewer.generation) viewer.failedNote.hidden = false;
      });
    return block;
  };

  var viewer = null;

  function findByName(name) {
    var entries = previewable();
    for (var i = 0; i < entries.length; i++) {
      if (entries[i].name === name) return entries[i];
    }
    return null;
  }

  // Clicks on any previewable file link, in the table or the grid; a click with a
  // modifier keeps its usual meaning (a new tab, a download).
  function catchClicks() {
    document.addEventListener("click", function (event) {
      if (event.defaultPrevented || event.button !== 0) return;
      if (event.ctrlKey || event.metaKey || event.shiftKey || event.altKey) return;
      var link = event.target.closest && event.target.closest("a[data-preview], tbody.entries a.entry-name");
      if (!link) return;
      var name = link.getAttribute("data-preview") || link.textContent;
      var entry = findByName(name);
      if (!entry) return;
      event.preventDefault();
      viewer.open(entry);
      if (link.hasAttribute("data-preview")) viewer.returnFocus = link;
    });
  }

  function readView() {
    try {
      return window.localStorage.getItem(kViewKey);
    } catch (error) {
      return null;  // storage refused by the browser's settings
    }
  }

  function saveView(view) {
    try {
      window.localStorage.setItem(kViewKey, view);
    } catch (error) {
      // The view then lasts for this page only.
    }
  }

  function gridItem(entry) {
    var item = document.createElement("li");
    item.className = "grid-item" + (entry.folder ? " is-folder" : "");
    var link = document.createElement("a");
    link.className = "grid-link";
    link.href = entry.href;
    if (entry.kind !== null) link.setAttribute("data-preview", entry.name);
    if (entry.kind === "image") {
      var thumb = document.createElement("img");
      thumb.className = "grid-thumb";
      thumb.loading = "lazy";
      thumb.decoding = "async";
      thumb.alt = "";
      // A picture type the browser cannot draw gets the plain icon instead.
      thumb.addEventListener("error", function () {
        var icon = document.createElement("span");
        icon.className = "grid-icon";
        thumb.replaceWith(icon);
      });
      thumb.src = entry.href;
      link.appendChild(thumb);
    } else {
      var icon = document.createElement("span");
      icon.className = "grid-icon";
      link.appendChild(icon);
    }
    var name = document.createElement("span");
    name.className = "grid-name";
    name.textContent = entry.name;
    link.appendChild(name);
    item.appendChild(link);
    return item;
  }

  function showView(grid, toggle, asGrid) {
    var table = document.querySelector("table.listing");
    if (asGrid) {
      grid.textContent = "";
      var entries = listEntries();
      for (var i = 0; i < entries.length; i++) grid.appendChild(gridItem(entries[i]));
    }
    grid.hidden = !asGrid;
    if (table) table.hidden = asGrid;
    toggle.setAttribute("aria-pressed", asGrid ? "true" : "false");
  }

  function startGrid() {
    var grid = document.querySelector("ul.grid");
    var toggle = document.querySelector(".view-grid-toggle");
    if (!grid || !toggle || !document.querySelector("tbody.entries")) return;
    toggle.parentNode.hidden = false;
    showView(grid, toggle, readView() === "grid");
    toggle.addEventListener("click", function () {
      var asGrid = toggle.getAttribute("aria-pressed") !== "true";
      saveView(asGrid ? "grid" : "list");
      showView(grid, toggle, asGrid);
    });
  }

  function start() {
    var root = document.querySelector(".viewer");
    if (!root || !document.querySelector("tbody.entries")) return;
    viewer = new Viewer(root);
    catchClicks();
    startGrid();
    viewer.follow();
  }

  if (document.readyState === "loading") {
    document.addEventListener("DOMContentLoaded", start);
  } else {
    start();
  }
})();
