/*
 * Korvel Lumidrop, built-in skin: behaviour shared by the page and the upload window.
 *
 * Everything here is an enhancement. Without it the listing still browses and downloads,
 * and the upload form in the page still posts (the server then answers with its own page).
 *
 * The upload itself is a plain multipart post into a hidden frame, so it works in every
 * browser; its progress comes from the server. The post carries a random key in its query,
 * and a second hidden frame (upload_frame.html) asks the server for the progress of that
 * key. The server answers with a long page of script pieces that call onUpdateUpload and
 * onUpdateProgress on the frame's parent, which is the window holding the form: both
 * functions are defined below.
 *
 * This file is translated when the skin loads, so its texts are written as translation
 * directives and it must not contain anything else that the template language reads.
 */
(function () {
  "use strict";

  var TEXT = {
    home: #QU("홈"),
    defaultSkin: #QU("기본"),
    starting: #QU("업로드를 시작합니다..."),
    cancelled: #QU("업로드를 취소했습니다."),
    finished: #QU("업로드가 끝났습니다. "),
    failed: #QU("업로드가 실패했습니다."),
    ok: #QU("[확인]"),
    noTarget: #QU("올릴 폴더를 알 수 없습니다. 파일 목록에서 이 창을 다시 열어 주세요."),
    selection: #QU("파일 {count}개, {size}"),
    stillRunning: #QU("업로드가 진행 중입니다. 이 페이지를 떠나면 업로드가 중단됩니다.")
  };

  // The folder this script was served from: the other files of the skin live beside it.
  var script = document.currentScript;
  var SKIN_BASE = script && script.src ? new URL(".", script.src).href : "/";

  var UNITS = ["B", "KB", "MB", "GB", "TB", "PB"];

  function formatBytes(bytes) {
    var value = Number(bytes);
    if (!isFinite(value) || value < 0) return "";
    var unit = 0;
    while (value >= 1024 && unit < UNITS.length - 1) {
      value /= 1024;
      unit += 1;
    }
    var digits = unit === 0 || value >= 100 ? 0 : value >= 10 ? 1 : 2;
    return value.toFixed(digits) + " " + UNITS[unit];
  }

  // "1,234,567" as the server writes sizes, back to a number.
  function parseGrouped(text) {
    var digits = String(text || "").replace(/[^0-9]/g, "");
    return digits ? parseInt(digits, 10) : NaN;
  }

  function fillIn(template, values) {
    return template.replace(/\{(\w+)\}/g, function (whole, name) {
      return Object.prototype.hasOwnProperty.call(values, name) ? String(values[name]) : whole;
    });
  }

  // Long enough that nobody guesses another visitor's key and reads their progress.
  function randomKey() {
    var alphabet = "abcdefghijklmnopqrstuvwxyz0123456789";
    var bytes = new Uint8Array(20);
    if (window.crypto && window.crypto.getRandomValues) {
      window.crypto.getRandomValues(bytes);
    } else {
      for (var i = 0; i < bytes.length; i++) bytes[i] = Math.floor(Math.random() * 256);
    }
    var key = "";
    for (var j = 0; j < bytes.length; j++) key += alphabet.charAt(bytes[j] % alphabet.length);
    return key;
  }

  function decodeSegment(segment) {
    try {
      return decodeURIComponent(segment);
    } catch (e) {
      return segment;  // not UTF-8: show it as it came
    }
  }

  // A folder address of this server, such as "/music/rock/". Anything else (another host
  // written as "//host/", a backslash that browsers read as a slash, a query) is refused,
  // so that a crafted link can never send someone's files elsewhere.
  function isFolderPath(path) {
    return typeof path === "string" && /^\/(?:[^\/?\\\s]+\/)*$/.test(path);
  }

  function hashParameter(name) {
    var pairs = window.location.hash.replace(/^./, "").split("&");
    for (var i = 0; i < pairs.length; i++) {
      var at = pairs[i].indexOf("=");
      if (at > 0 && pairs[i].slice(0, at) === name) return pairs[i].slice(at + 1);
    }
    return null;
  }

  // "?skin=..." of the current address, so that a chosen skin stays while browsing.
  function skinQuery() {
    var match = /[?&]skin=([^&]*)/.exec(window.location.search);
    return match ? "?skin=" + match[1] : "";
  }

  function element(tag, className, text) {
    var node = document.createElement(tag);
    if (className) node.className = className;
    if (text !== undefined) node.textContent = text;
    return node;
  }

  function hiddenFrame(name) {
    var frame = document.createElement("iframe");
    if (name) frame.name = name;
    frame.title = "";
    frame.setAttribute("aria-hidden", "true");
    frame.tabIndex = -1;
    frame.style.display = "none";
    document.body.appendChild(frame);
    return frame;
  }

  function frameDocument(frame) {
    try {
      return frame.contentDocument;
    } catch (e) {
      return null;
    }
  }

  function frameAddress(frame) {
    var doc = frameDocument(frame);
    return doc && doc.location ? doc.location.href : "";
  }

  // ---------------------------------------------------------------------------------
  // Uploads

  var activeUpload = null;

  function Uploader(form, path, standalone) {
    this.form = form;
    this.path = path;
    this.standalone = standalone;
    this.input = form.querySelector("input[type=file]");
    this.submit = form.querySelector("button[type=submit]");
    this.box = form.querySelector(".upload-progress");
    this.fill = form.querySelector(".progress-fill");
    this.bar = form.querySelector(".progress-bar");
    this.percent = form.querySelector(".progress-percent");
    this.status = form.querySelector(".progress-status");
    this.result = form.querySelector(".progress-result");
    this.cancelButton = form.querySelector(".upload-cancel");
    this.selection = element("div", "upload-selection");
    this.selection.hidden = true;
    this.input.parentNode.insertBefore(this.selection, this.box);
    this.busy = false;

    var self = this;
    form.addEventListener("submit", function (event) {
      if (self.busy || !self.input.files || self.input.files.length === 0) {
        event.preventDefault();
        return;
      }
      self.begin();
    });
    this.input.addEventListener("change", function () {
      self.describeSelection();
    });
    if (this.cancelButton) {
      this.cancelButton.addEventListener("click", function () {
        self.cancel();
      });
    }
    window.addEventListener("beforeunload", function (event) {
      if (!self.busy) return undefined;
      event.preventDefault();
      event.returnValue = TEXT.stillRunning;
      return TEXT.stillRunning;
    });
  }

  Uploader.prototype.describeSelection = function () {
    var files = this.input.files;
    if (!files || files.length === 0) {
      this.selection.hidden = true;
      return;
    }
    var total = 0;
    for (var i = 0; i < files.length; i++) total += files[i].size;
    this.selection.textContent = fillIn(TEXT.selection, {
      count: files.length,
      size: formatBytes(total)
    });
    this.selection.hidden = false;
  };

  // Runs inside the submit event: the browser posts the form right after it, with the
  // address and target set here.
  Uploader.prototype.begin = function () {
    var self = this;
    this.busy = true;
    this.finished = false;
    this.answered = false;
    this.retries = 0;
    this.key = randomKey();
    activeUpload = this;
    this.removeFrames();

    this.sink = hiddenFrame("lumidrop-sink-" + this.key);
    this.sink.addEventListener("load", function () {
      self.onAnswer();
    });
    this.form.setAttribute("action", this.path + "?key=" + this.key);
    this.form.setAttribute("target", this.sink.name);

    this.box.hidden = false;
    this.box.className = "upload-progress";
    this.result.textContent = "";
    this.status.textContent = TEXT.starting;
    this.setPercent(0);
    if (this.cancelButton) this.cancelButton.hidden = false;
    // Disabled only after the browser has read the form, or the files would not be sent.
    window.setTimeout(function () {
      self.submit.disabled = true;
      self.input.disabled = true;
    }, 0);
    window.setTimeout(function () {
      self.watch();
    }, 300);
  };

  Uploader.prototype.watch = function () {
    var self = this;
    if (!this.busy) return;
    if (this.progressFrame) this.progressFrame.parentNode.removeChild(this.progressFrame);
    var frame = hiddenFrame(null);
    this.progressFrame = frame;
    frame.addEventListener("load", function () {
      // The frame loads twice: its own page, then the server's progress page, whose end
      // means the server has nothing more to say about this key.
      if (frame === self.progressFrame && frameAddress(frame).indexOf("UploadStatus") >= 0) {
        self.onProgressEnd();
      }
    });
    frame.src = SKIN_BASE + "upload_frame.html?action=SkinFile#key=" + this.key;
  };

  Uploader.prototype.onProgressEnd = function () {
    var self = this;
    if (this.finished || this.answered || !this.busy) return;
    // The progress page gives up when the post has not reached the server quickly
    // enough; while the post is still going, ask again a few times.
    if (this.retries < 3) {
      this.retries += 1;
      window.setTimeout(function () {
        self.watch();
      }, 1500);
    }
  };

  Uploader.prototype.setPercent = function (value) {
    var percent = Math.max(0, Math.min(100, Number(value)));
    if (!isFinite(percent)) return;
    this.fill.style.width = percent + "%";
    this.percent.textContent = Math.floor(percent) + "%";
    if (this.bar) this.bar.setAttribute("aria-valuenow", String(Math.floor(percent)));
  };

  // The server's text is HTML: the file name, the amounts, the speed and the time left,
  // or the final word with a link that was written for an upload window. Its handlers are
  // dropped and the link is given ours, which knows where this form lives.
  Uploader.prototype.showStatus = function (html) {
    var holder = document.createElement("template");
    holder.innerHTML = String(html);
    var nodes = holder.content.querySelectorAll("*");
    var link = null;
    for (var i = 0; i < nodes.length; i++) {
      var node = nodes[i];
      if (node.tagName === "SCRIPT") {
        node.parentNode.removeChild(node);
        continue;
      }
      for (var a = node.attributes.length - 1; a >= 0; a--) {
        var name = node.attributes[a].name.toLowerCase();
        if (name.indexOf("on") === 0) node.removeAttribute(node.attributes[a].name);
      }
      if (node.tagName === "A") {
        node.setAttribute("href", this.listingAddress());
        link = node;
      }
    }
    this.status.textContent = "";
    this.status.appendChild(document.importNode(holder.content, true));
    if (link) {
      this.wireDoneLink(this.status.querySelector("a"));
      this.finish(true);
    }
  };

  Uploader.prototype.listingAddress = function () {
    return this.path + skinQuery();
  };

  Uploader.prototype.wireDoneLink = function (link) {
    var self = this;
    if (!link) return;
    link.addEventListener("click", function (event) {
      event.preventDefault();
      self.done();
    });
  };

  // Back to an up-to-date listing, wherever the form lives.
  Uploader.prototype.done = function () {
    if (!this.standalone) {
      window.location.reload();
      return;
    }
    var opener = null;
    try {
      opener = window.opener && !window.opener.closed ? window.opener : null;
      if (opener) opener.location.reload();
    } catch (e) {
      opener = null;  // the opener went elsewhere
    }
    if (opener) {
      window.close();
    } else {
      window.location.href = this.listingAddress();
    }
  };

  Uploader.prototype.finish = function (succeeded) {
    if (this.finished) return;
    this.finished = true;
    this.busy = false;
    this.box.className = "upload-progress " + (succeeded ? "is-done" : "is-failed");
    if (succeeded) this.setPercent(100);
    if (this.cancelButton) this.cancelButton.hidden = true;
    this.submit.disabled = false;
    this.input.disabled = false;
    this.input.value = "";
    this.describeSelection();
    if (succeeded && this.standalone) {
      try {
        if (window.opener && !window.opener.closed) window.opener.location.reload();
      } catch (e) {
        // nothing to refresh
      }
    }
  };

  // The answer to the post itself arrived in the hidden frame: the upload is over, one
  // way or the other. When it is one of our message pages, its words are shown, and a
  // title with an error status ("500 ...") or a result marked "upload-failed" counts as
  // a failure.
  Uploader.prototype.onAnswer = function () {
    if (!this.sink || frameAddress(this.sink) === "about:blank" || this.answered) return;
    this.answered = true;
    var doc = frameDocument(this.sink);
    var title = doc ? doc.querySelector(".message-title") : null;
    var body = doc ? doc.querySelector(".message-body") : null;
    var heading = title ? title.textContent.trim() : "";
    var words = [heading, body ? body.textContent.trim() : ""].filter(Boolean).join("\n");
    if (words) this.result.textContent = words;
    if (this.finished) return;
    // The progress page may not have caught up: the answer has the last word.
    var succeeded = !/^[45][0-9][0-9]\b/.test(heading) && !(doc && doc.querySelector(".upload-failed"));
    if (this.progressFrame && this.progressFrame.parentNode) {
      this.progressFrame.parentNode.removeChild(this.progressFrame);
    }
    this.progressFrame = null;
    this.status.textContent = (succeeded ? TEXT.finished : TEXT.failed).trim() + " ";
    var link = element("a", "", TEXT.ok);
    link.href = this.listingAddress();
    this.status.appendChild(link);
    this.wireDoneLink(link);
    this.finish(succeeded);
  };

  Uploader.prototype.removeFrames = function () {
    if (this.sink && this.sink.parentNode) this.sink.parentNode.removeChild(this.sink);
    if (this.progressFrame && this.progressFrame.parentNode) {
      this.progressFrame.parentNode.removeChild(this.progressFrame);
    }
    this.sink = null;
    this.progressFrame = null;
  };

  Uploader.prototype.cancel = function () {
    if (!this.busy) return;
    this.busy = false;
    this.answered = true;
    this.removeFrames();  // which stops the post and the progress page
    this.status.textContent = TEXT.cancelled;
    this.finished = false;
    this.box.className = "upload-progress is-failed";
    if (this.cancelButton) this.cancelButton.hidden = true;
    this.submit.disabled = false;
    this.input.disabled = false;
  };

  Uploader.prototype.takeDrop = function (files) {
    if (this.busy || !files || files.length === 0) return;
    try {
      this.input.files = files;
    } catch (e) {
      return;  // an old browser that cannot hand dropped files to a form
    }
    this.describeSelection();
    if (this.form.requestSubmit) {
      this.form.requestSubmit(this.submit);
    } else {
      this.begin();
      this.form.submit();
    }
  };

  // Called by the server's progress page in the hidden frame.
  window.onUpdateUpload = function (message) {
    if (activeUpload && activeUpload.busy) activeUpload.showStatus(message);
  };
  window.onUpdateProgress = function (percent) {
    if (activeUpload && activeUpload.busy) activeUpload.setPercent(percent);
  };

  // Files dropped anywhere on the page: `take` gets the drop's DataTransfer while the drop
  // event lasts (a folder's entries can only be taken then).
  function acceptDrops(take) {
    var depth = 0;
    function carriesFiles(event) {
      var types = event.dataTransfer && event.dataTransfer.types;
      if (!types) return false;
      for (var i = 0; i < types.length; i++) if (types[i] === "Files") return true;
      return false;
    }
    document.addEventListener("dragenter", function (event) {
      if (!carriesFiles(event)) return;
      depth += 1;
      document.body.classList.add("is-dropping");
    });
    document.addEventListener("dragleave", function (event) {
      if (!carriesFiles(event)) return;
      depth = Math.max(0, depth - 1);
      if (depth === 0) document.body.classList.remove("is-dropping");
    });
    document.addEventListener("dragover", function (event) {
      if (!carriesFiles(event)) return;
      event.preventDefault();
      event.dataTransfer.dropEffect = "copy";
    });
    document.addEventListener("drop", function (event) {
      if (!carriesFiles(event)) return;
      event.preventDefault();
      depth = 0;
      document.body.classList.remove("is-dropping");
      take(event.dataTransfer);
    });
  }

  function dropsInto(uploader) {
    acceptDrops(function (transfer) {
      uploader.takeDrop(transfer.files);
    });
  }

  // ---------------------------------------------------------------------------------
  // The folder tree
  //
  // Beside the listing, the share's folders as a tree. A node asks the server for its
  // sub-folders ("?action=Subdir") when it is first opened, and the way down to the
  // current folder opens by itself. Names from the server are only ever set as text.

  var TREE_TEXT = {
    home: #QU("홈"),
    loading: #QU("불러오는 중…"),
    empty: #QU("하위 폴더가 없습니다."),
    failed: #QU("폴더를 읽을 수 없습니다."),
    open: #QU("펼치기: {name}"),
    close: #QU("접기: {name}")
  };

  // One path segment as the server writes links: never "." or "..", never more than one.
  function isTreeLink(link) {
    return typeof link === "string" && /^[^\/?#\\]+\/$/.test(link) &&
           !/^(?:\.|%2e){1,2}\/$/i.test(link);
  }

  // `href` is the folder's own address, URL-encoded and ending in "/".
  function TreeNode(name, href) {
    var self = this;
    this.name = name;
    this.href = href;
    this.loaded = null;
    this.item = element("li", "tree-node");
    this.row = element("div", "tree-row");
    this.toggle = element("button", "tree-toggle");
    this.toggle.type = "button";
    this.link = element("a", "tree-name", name);
    this.link.href = href + skinQuery();
    this.children = element("ul", "tree-children");
    this.row.appendChild(this.toggle);
    this.row.appendChild(this.link);
    this.item.appendChild(this.row);
    this.item.appendChild(this.children);
    this.toggle.addEventListener("click", function () {
      self.setOpen(self.children.hidden);
    });
    this.setOpen(false);
  }

  TreeNode.prototype.markCurrent = function () {
    this.row.classList.add("is-current");
    this.link.setAttribute("aria-current", "page");
  };

  // Resolves to the child nodes once they are in (none when they could not be read).
  TreeNode.prototype.setOpen = function (open) {
    this.toggle.setAttribute("aria-expanded", open ? "true" : "false");
    this.toggle.setAttribute("aria-label",
                             fillIn(open ? TREE_TEXT.close : TREE_TEXT.open, { name: this.name }));
    this.children.hidden = !open;
    return open ? this.load() : Promise.resolve([]);
  };

  TreeNode.prototype.load = function () {
    if (this.loaded) return this.loaded;
    var self = this;
    this.children.textContent = "";
    var note = element("li", "tree-note", TREE_TEXT.loading);
    this.children.appendChild(note);
    this.loaded = window.fetch(this.href + "?action=Subdir", { credentials: "same-origin" })
      .then(function (response) {
        if (!response.ok) throw new Error("HTTP " + response.status);
        return response.json();
      })
      .then(function (answer) {
        var folders = answer && Array.isArray(answer.folders) ? answer.folders : [];
        var nodes = [];
        for (var i = 0; i < folders.length; i++) {
          var folder = folders[i];
          if (!folder || typeof folder.name !== "string" || !isTreeLink(folder.link)) continue;
          nodes.push(self.adopt(new TreeNode(folder.name, self.href + folder.link)));
        }
        if (nodes.length > 0) {
          self.children.removeChild(note);
        } else {
          note.textContent = TREE_TEXT.empty;
        }
        return nodes;
      })
      .catch(function () {
        note.textContent = TREE_TEXT.failed;
        note.classList.add("is-failed");
        self.loaded = null;  // the next opening tries again
        return [];
      });
    return this.loaded;
  };

  TreeNode.prototype.adopt = function (node) {
    this.children.appendChild(node.item);
    return node;
  };

  // Opens `node` and then, one level at a time, the folders named by `segments` (the
  // current address's, still URL-encoded). A folder the server did not list on the way
  // (the root may be closed to visitors) is put in from the address, which proves it is
  // there.
  function openAlong(node, segments) {
    if (segments.length === 0) {
      node.markCurrent();
      node.setOpen(true);
      return;
    }
    node.setOpen(true).then(function (children) {
      var name = decodeSegment(segments[0]);
      var next = null;
      for (var i = 0; i < children.length && !next; i++) {
        if (children[i].name === name) next = children[i];
      }
      if (!next) {
        var notes = node.children.querySelectorAll(":scope > .tree-note");
        for (var j = 0; j < notes.length; j++) node.children.removeChild(notes[j]);
        next = node.adopt(new TreeNode(name, node.href + segments[0] + "/"));
      }
      openAlong(next, segments.slice(1));
    });
  }

  function startFolderTree() {
    var nav = document.querySelector("nav.folder-tree");
    if (!nav || !window.fetch || !window.Promise) return;
    var toggle = nav.querySelector(".folder-tree-toggle");
    var panel = nav.querySelector(".folder-tree-panel");
    toggle.addEventListener("click", function () {
      var open = !nav.classList.contains("is-open");
      nav.classList.toggle("is-open", open);
      toggle.setAttribute("aria-expanded", open ? "true" : "false");
    });
    var list = element("ul", "tree-root");
    var home = new TreeNode(TREE_TEXT.home, "/");
    list.appendChild(home.item);
    panel.appendChild(list);
    document.body.classList.add("has-folder-tree");
    var segments = window.location.pathname.split("/").filter(function (segment) {
      return segment !== "";
    });
    openAlong(home, segments);
  }

  if (document.readyState === "loading") {
    document.addEventListener("DOMContentLoaded", startFolderTree);
  } else {
    startFolderTree();
  }

  // ---------------------------------------------------------------------------------
  // The page

  function buildCrumbs(nav) {
    var path = nav.getAttribute("data-path") || "";
    var parts = path.split("/").filter(function (part) { return part !== ""; });
    var keep = skinQuery();
    var href = "/";
    nav.textContent = "";

    function add(label, address, current) {
      var crumb;
      if (current) {
        crumb = element("span", "crumb-current", label);
        crumb.setAttribute("aria-current", "page");
      } else {
        crumb = element("a", "crumb", label);
        crumb.href = address + keep;
      }
      nav.appendChild(crumb);
    }

    add(TEXT.home, href, parts.length === 0);
    for (var i = 0; i < parts.length; i++) {
      href += parts[i] + "/";
      nav.appendChild(element("span", "crumb-separator", "\u203a"));
      add(decodeSegment(parts[i]), href, i === parts.length - 1);
    }
  }

  // Folder links carry a chosen skin along; file links are left alone.
  function keepSkinOnFolderLinks() {
    var keep = skinQuery();
    if (!keep) return;
    var links = document.querySelectorAll(".listing .folder .entry-name");
    for (var i = 0; i < links.length; i++) {
      var href = links[i].getAttribute("href") || "";
      if (href.indexOf("?") >= 0) continue;
      if (href.charAt(href.length - 1) !== "/") href += "/";
      links[i].setAttribute("href", href + keep);
    }
  }

  function markSkins(nav) {
    var current = nav.getAttribute("data-current");
    var choices = nav.querySelectorAll(".skin-choice");
    for (var i = 0; i < choices.length; i++) {
      var name = choices[i].getAttribute("data-skin") || "";
      choices[i].setAttribute("href", "?skin=" + encodeURIComponent(name));
      if (name === ".default") choices[i].textContent = TEXT.defaultSkin;
      if (name === current) {
        choices[i].classList.add("is-current");
        choices[i].setAttribute("aria-current", "true");
      }
    }
  }

  function explainSizes() {
    var cells = document.querySelectorAll(".listing td.col-size, .summary .bytes");
    for (var i = 0; i < cells.length; i++) {
      var bytes = parseGrouped(cells[i].textContent);
      if (bytes >= 1024) cells[i].title = formatBytes(bytes);
    }
  }

  function wireBackLinks() {
    var links = document.querySelectorAll("a[data-back]");
    for (var i = 0; i < links.length; i++) {
      links[i].addEventListener("click", function (event) {
        if (window.history.length > 1) {
          event.preventDefault();
          window.history.back();
        }
      });
    }
  }

  function wireUploadWindowLinks() {
    var links = document.querySelectorAll("a.upload-window-link");
    for (var i = 0; i < links.length; i++) {
      links[i].addEventListener("click", function (event) {
        var opened = window.open(this.href, "lumidrop-upload",
                                 "width=560,height=520,resizable=yes,scrollbars=yes");
        if (opened) {
          event.preventDefault();
          opened.focus();
        }
      });
    }
  }

  // The upload window learns its folder from its address ("...#path=/music/"), or else
  // from the listing that opened it.
  function uploadWindowTarget() {
    var path = hashParameter("path");
    if (isFolderPath(path)) return path;
    try {
      var fromOpener = window.opener && window.opener.location.pathname;
      if (isFolderPath(fromOpener)) return fromOpener;
    } catch (e) {
      // an opener on another site tells nothing
    }
    return null;
  }

  function setUpUploadWindow(form) {
    var path = uploadWindowTarget();
    var shown = document.querySelector(".upload-target-name");
    if (!path) {
      var notice = document.querySelector(".upload-notice");
      if (notice) {
        notice.textContent = TEXT.noTarget;
        notice.hidden = false;
      }
      var controls = form.querySelectorAll("input, button");
      for (var i = 0; i < controls.length; i++) controls[i].disabled = true;
      return;
    }
    if (shown) shown.textContent = decodeSegment(path);
    dropsInto(new Uploader(form, path, true));
  }

  function start() {
    var crumbs = document.querySelector(".crumbs[data-path]");
    if (crumbs) buildCrumbs(crumbs);
    keepSkinOnFolderLinks();
    var skins = document.querySelector(".skins[data-current]");
    if (skins) markSkins(skins);
    explainSizes();
    wireBackLinks();
    wireUploadWindowLinks();

    var windowForm = document.querySelector("form.upload-form[data-standalone]");
    if (windowForm) {
      setUpUploadWindow(windowForm);
      return;
    }
    var pageForm = document.querySelector("form.upload-form[data-upload-path]");
    if (pageForm) {
      var path = pageForm.getAttribute("data-upload-path");
      if (isFolderPath(path)) dropsInto(new Uploader(pageForm, path, false));
    }
  }

  window.Lumidrop = {
    formatBytes: formatBytes,
    fillIn: fillIn,
    parseGrouped: parseGrouped,
    randomKey: randomKey,
    isFolderPath: isFolderPath,
    acceptDrops: acceptDrops
  };

  if (document.readyState === "loading") {
    document.addEventListener("DOMContentLoaded", start);
  } else {
    start();
  }
})();

/*
 * Action plug-ins work on the files ticked in the listing: each file row gets a box, and a
 * plug-in's form sends the ticked names, one per line. Without scripts the form still
 * works, and the plug-in is given the whole folder. Where the visitor may manage entries
 * (admin.js), folders get a box as well; plug-ins are still given files only.
 *
 * A name on disk is bytes, and not always UTF-8: shown as text it may hold U+FFFD and name
 * nothing. So a selection is sent as the percent-encoded bytes of each entry's own link,
 * which the server decodes back to the very name, never as the text the row shows.
 */
(function () {
  // The last segment of an entry's link, as the server wrote it: the name's bytes with all
  // but letters, digits, "_" and "." percent-encoded ("+" and "%" too).
  function linkSegment(link) {
    var href = (link.getAttribute("href") || "").split(/[?#]/)[0].replace(/\/$/, "");
    return href.slice(href.lastIndexOf("/") + 1);
  }

  // Other scripts of the skin tick folders too (the zip download): they pass their rows.
  // With the managing tools, folders are ticked as well.
  function addBoxes(selector) {
    var managed = document.querySelector("form.admin-tools") !== null;
    var rows = document.querySelectorAll(selector || (
      managed ? "tbody.entries tr.file, tbody.entries tr.folder" : "tbody.entries tr.file"));
    for (var i = 0; i < rows.length; i++) {
      var cell = rows[i].querySelector("td");
      var link = cell && cell.querySelector("a.entry-name");
      if (!link || cell.querySelector("input.plugin-pick")) continue;
      var segment = linkSegment(link);
      // A line break would split the name into two lines of the selection, each naming
      // something else: the server refuses such names, so they are not offered.
      if (/%0[ad]/i.test(segment)) continue;
      var box = document.createElement("input");
      box.type = "checkbox";
      box.className = "plugin-pick";
      box.value = link.textContent;
      box.setAttribute("data-link", segment);
      box.setAttribute("data-kind", rows[i].classList.contains("folder") ? "folder" : "file");
      box.setAttribute("aria-label", link.textContent);
      var line = document.createElement("span");
      line.className = "entry-pick";
      cell.insertBefore(line, link);
      line.appendChild(box);
      line.appendChild(link);
    }
  }

  function ticked(selector) {
    var boxes = document.querySelectorAll(selector || "input.plugin-pick:checked");
    return Array.prototype.slice.call(boxes);
  }

  // The boxes' names as one urlencoded form value, a name per line.
  function encodedSelection(boxes) {
    return boxes.map(function (box) { return box.getAttribute("data-link"); }).join("%0A");
  }

  // A form the browser sends itself can carry only text. In windows-1252 every byte is one
  // character and back, so a form sent with accept-charset="windows-1252" and a value of
  // these characters puts exactly the encoded bytes on the wire.
  function formBytes(encoded) {
    var hex = encoded.match(/%[0-9a-fA-F]{2}|[^%]/g) || [];
    var bytes = new Uint8Array(hex.length);
    for (var i = 0; i < hex.length; i++) {
      bytes[i] = hex[i].length === 3 ? parseInt(hex[i].slice(1), 16) : hex[i].charCodeAt(0);
    }
    return new TextDecoder("windows-1252").decode(bytes);
  }

  // The plug-in's page is asked for with the query built here, which carries the bytes.
  function sendTicked(form) {
    form.addEventListener("submit", function (event) {
      var boxes = ticked("input.plugin-pick[data-kind=file]:checked");
      var query = [];
      var fields = form.querySelectorAll("input[type=hidden]:not([name=selectedFiles])");
      for (var i = 0; i < fields.length; i++) {
        query.push(encodeURIComponent(fields[i].name) + "=" + encodeURIComponent(fields[i].value));
      }
      if (boxes.length > 0) query.push("selectedFiles=" + encodedSelection(boxes));
      event.preventDefault();
      var address = new URL(form.getAttribute("action") || "", window.location.href);
      address.search = "?" + query.join("&");
      address.hash = "";
      window.location.assign(address.href);
    });
  }

  function start() {
    var forms = document.querySelectorAll("form.plugin-action");
    if (forms.length === 0 && !document.querySelector("form.admin-tools")) return;
    addBoxes();
    for (var i = 0; i < forms.length; i++) sendTicked(forms[i]);
  }

  window.LumidropPicks = {
    addBoxes: addBoxes,
    ticked: ticked,
    encodedSelection: encodedSelection,
    formBytes: formBytes
  };

  if (document.readyState === "loading") {
    document.addEventListener("DOMContentLoaded", start);
  } else {
    start();
  }
})();
