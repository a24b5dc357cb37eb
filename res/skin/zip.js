/*
 * Zip downloads of a selection: every entry of the listing, folders too, gets a tick box
 * (the ones action plug-ins use, made by common.js), and the selection's button
 * appears once something is ticked. It posts the ticked names, one per line, as the bytes
 * of their links (see LumidropPicks.formBytes), so that names that are not UTF-8 are
 * zipped too. The link for the whole folder needs no script.
 */
(function () {
  function start() {
    var form = document.querySelector("form.zip-selection");
    if (!form) return;
    window.LumidropPicks.addBoxes("tbody.entries tr.file, tbody.entries tr.folder");
    var field = form.querySelector("input[name=selectedFiles]");
    var update = function () { form.hidden = window.LumidropPicks.ticked().length === 0; };
    document.addEventListener("change", function (event) {
      if (event.target.classList && event.target.classList.contains("plugin-pick")) update();
    });
    form.addEventListener("submit", function (event) {
      var picked = window.LumidropPicks.ticked();
      if (picked.length === 0) {
        event.preventDefault();
        return;
      }
      form.acceptCharset = "windows-1252";
      field.value = window.LumidropPicks.formBytes(window.LumidropPicks.encodedSelection(picked));
    });
    update();
  }

  if (document.readyState === "loading") {
    document.addEventListener("DOMContentLoaded", start);
  } else {
    start();
  }
})();
