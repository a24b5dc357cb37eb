/*
 * Zip downloads of a selection: every entry of the listing, folders too, gets a tick box
 * (the ones action plug-ins use, made by common.js), and the selection's button
 * appears once something is ticked. It posts the ticked names, one per line. The link for
 * the whole folder needs no script.
 */
(function () {
  function tickedNames() {
    var ticked = document.querySelectorAll("input.plugin-pick:checked");
    var names = [];
    for (var i = 0; i < ticked.length; i++) names.push(ticked[i].value);
    return names;
  }

  function start() {
    var form = document.querySelector("form.zip-selection");
    if (!form) return;
    window.LumidropPicks.addBoxes("tbody.entries tr.file, tbody.entries tr.folder");
    var field = form.querySelector("input[name=selectedFiles]");
    var update = function () { form.hidden = tickedNames().length === 0; };
    document.addEventListener("change", function (event) {
      if (event.target.classList && event.target.classList.contains("plugin-pick")) update();
    });
    form.addEventListener("submit", function (event) {
      var names = tickedNames();
      if (names.length === 0) {
        event.preventDefault();
        return;
      }
      field.value = names.join("\n");
    });
    update();
  }

  if (document.readyState === "loading") {
    document.addEventListener("DOMContentLoaded", start);
  } else {
    start();
  }
})();
