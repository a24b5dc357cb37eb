/*
 * Korvel Lumidrop, built-in skin: managing the entries of a folder, for visitors with the
 * administration right (the page shows the "admin-tools" form only to them).
 *
 * Without scripts the form posts the names typed into it, and the server answers with the
 * listing or with the reason it refused. With scripts the names come from the tick boxes
 * of the listing (common.js adds them; shift-click ticks a range) and travel as the bytes
 * of their links, so that a name that is not UTF-8 can be managed too; the new name and the
 * target folder are asked for, every action is one POST answered in JSON, and the listing
 * is fetched again and put in place without leaving the page. Other scripts that wire up
 * rows hear of it through the "lumidrop:listing-changed" event on the document.
 *
 * This file is translated when the skin loads: its texts are translation directives, and
 * it must not contain anything else that the template language reads.
 */
(function () {
  "use strict";

  var TEXT = {
    nothing: #QU("먼저 항목을 선택하세요."),
    onlyOne: #QU("이름을 바꿀 항목 하나만 선택하세요."),
    confirmDelete: #QU("선택한 {count}개 항목을 휴지통으로 옮길까요?"),
    newName: #QU("새 이름:"),
    target: #QU("어느 폴더로 옮길까요? (예: /docs/사진/)"),
    folderName: #QU("새 폴더 이름:"),
    folderMade: #QU("폴더를 만들었습니다."),
    folderFailed: #QU("폴더를 만들지 못했습니다."),
    refused: #QU("권한이 없습니다."),
    failed: #QU("요청이 실패했습니다.")
  };

  var form = null;
  var status = null;
  var lastClicked = null;

  function boxes() {
    return Array.prototype.slice.call(document.querySelectorAll("input.plugin-pick"));
  }

  function tickedBoxes() {
    return boxes().filter(function (box) { return box.checked; });
  }

  function say(text, failed) {
    status.textContent = text;
    status.classList.toggle("admin-status-failed", !!failed);
  }

  // Shift-click ticks (or clears) every box between the last one clicked and this one.
  function tickRanges() {
    document.addEventListener("click", function (event) {
      var box = event.target;
      if (!box.classList || !box.classList.contains("plugin-pick")) return;
      var all = boxes();
      if (event.shiftKey && lastClicked && all.indexOf(lastClicked) >= 0) {
        var from = all.indexOf(lastClicked);
        var to = all.indexOf(box);
        for (var i = Math.min(from, to); i <= Math.max(from, to); i++) all[i].checked = box.checked;
      }
      lastClicked = box;
    });
  }

  // `picked`: the ticked boxes, sent as their names' bytes; `fields`: texts the visitor typed.
  function post(action, picked, fields) {
    var body = ["selectedFiles=" + window.LumidropPicks.encodedSelection(picked)];
    Object.keys(fields).forEach(function (name) {
      body.push(name + "=" + encodeURIComponent(fields[name]));
    });
    return fetch("?action=" + action, {
      method: "POST",
      headers: { Accept: "application/json", "Content-Type": "application/x-www-form-urlencoded" },
      credentials: "same-origin",
      body: body.join("&")
    }).then(function (response) {
      return response.json().catch(function () {
        return { ok: false, message: response.status === 401 ? TEXT.refused : TEXT.failed };
      });
    }, function () {
      return { ok: false, message: TEXT.failed };
    });
  }

  // The folder's rows and figures afresh, moved over from the page the server renders.
  function refreshListing() {
    return fetch(window.location.pathname, { credentials: "same-origin" })
      .then(function (response) { return response.text(); })
      .then(function (html) {
        var fresh = new DOMParser().parseFromString(html, "text/html");
        var pairs = [["tbody.entries", "tbody.entries"], [".summary", ".summary"]];
        pairs.forEach(function (pair) {
          var mine = document.querySelector(pair[0]);
          var theirs = fresh.querySelector(pair[1]);
          if (mine && theirs) mine.replaceChildren.apply(mine, Array.prototype.slice.call(theirs.childNodes));
        });
        lastClicked = null;
        if (window.LumidropPicks) window.LumidropPicks.addBoxes();
        document.dispatchEvent(new CustomEvent("lumidrop:listing-changed"));
      });
  }

  function run(action, picked, fields) {
    return post(action, picked, fields).then(function (answer) {
      say(answer.message || "", !answer.ok);
      if (answer.ok || answer.done > 0) return refreshListing();
    });
  }

  function currentFolder() {
    try {
      return decodeURIComponent(window.location.pathname);
    } catch (e) {
      return window.location.pathname;  // not UTF-8: the visitor types the target anyway
    }
  }

  var ACTIONS = {
    Delete: function (picked) {
      if (!window.confirm(TEXT.confirmDelete.replace("{count}", String(picked.length)))) return;
      run("Delete", picked, {});
    },
    Rename: function (picked) {
      if (picked.length !== 1) return say(TEXT.onlyOne, true);
      var name = window.prompt(TEXT.newName, picked[0].value);
      if (name && name !== picked[0].value) run("Rename", picked, { newName: name });
    },
    Move: function (picked) {
      var target = window.prompt(TEXT.target, currentFolder());
      if (target) run("Move", picked, { target: target });
    }
  };

  // Folders are made as the upload tools make them, so the same right decides.
  function makeFolder() {
    var name = window.prompt(TEXT.folderName, "");
    if (!name) return;
    fetch("?action=MakeDirectory&name=" + encodeURIComponent(name), { credentials: "same-origin" })
      .then(function (response) {
        // Made: the server sends the browser on to the listing; refused: a message page.
        say(response.redirected ? TEXT.folderMade : TEXT.folderFailed, !response.redirected);
        if (response.redirected) return refreshListing();
      }, function () { say(TEXT.folderFailed, true); });
  }

  function start() {
    form = document.querySelector("form.admin-tools");
    if (!form) return;
    status = form.querySelector(".admin-status");
    form.classList.add("admin-scripted");
    var mkdir = form.querySelector(".admin-mkdir");
    if (mkdir) mkdir.hidden = false;
    tickRanges();
    form.addEventListener("click", function (event) {
      var button = event.target.closest("button[data-action]");
      if (!button) return;
      event.preventDefault();
      var action = button.getAttribute("data-action");
      if (action === "MakeDirectory") return makeFolder();
      var picked = tickedBoxes();
      if (picked.length === 0) return say(TEXT.nothing, true);
      ACTIONS[action](picked);
    });
  }

  if (document.readyState === "loading") {
    document.addEventListener("DOMContentLoaded", start);
  } else {
    start();
  }
})();
