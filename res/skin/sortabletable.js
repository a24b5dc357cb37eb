/*
 * Korvel Lumidrop, built-in skin: sorts the listing when a column header is clicked.
 *
 * A header cell takes part when it has data-sort="name", "size" or "date". Folders always
 * stay above files. Sizes are compared by the exact byte count of a cell's data-bytes
 * (the cell itself reads "1.4 MB"), or else by the cell's digits ("1,234,567"), and dates
 * ("2024-03-05 PM 01:05", a 12-hour clock) are compared in time order. The last choice is remembered for the next folder. Without
 * this script the table is simply in the server's order.
 */
(function () {
  "use strict";

  var STORAGE_KEY = "lumidrop.listing.sort";

  var collator = window.Intl && window.Intl.Collator
    ? new window.Intl.Collator(undefined, { numeric: true, sensitivity: "base" })
    : null;

  function compareText(a, b) {
    if (collator) return collator.compare(a, b);
    a = a.toLowerCase();
    b = b.toLowerCase();
    return a < b ? -1 : a > b ? 1 : 0;
  }

  // Empty cells (folders have no size or date) sort before every real value.
  function sizeKey(text) {
    var digits = text.replace(/[^0-9]/g, "");
    return digits ? parseInt(digits, 10) : -1;
  }

  function dateKey(text) {
    var m = /(\d{4})-(\d{1,2})-(\d{1,2})\s+(AM|PM)\s+(\d{1,2}):(\d{2})/i.exec(text);
    if (!m) return -1;
    var hour = parseInt(m[5], 10) % 12 + (m[4].toUpperCase() === "PM" ? 12 : 0);
    var day = (parseInt(m[1], 10) * 100 + parseInt(m[2], 10)) * 100 + parseInt(m[3], 10);
    return day * 10000 + hour * 100 + parseInt(m[6], 10);
  }

  var COLUMNS = {
    name: { key: function (text) { return text; }, compare: compareText, firstDescending: false },
    size: { key: sizeKey, compare: function (a, b) { return a - b; }, firstDescending: true },
    date: { key: dateKey, compare: function (a, b) { return a - b; }, firstDescending: true }
  };

  function readChoice() {
    try {
      var parts = (window.localStorage.getItem(STORAGE_KEY) || "").split(":");
      if (COLUMNS[parts[0]]) return { type: parts[0], descending: parts[1] === "desc" };
    } catch (e) {
      // storage may be switched off
    }
    return null;
  }

  function saveChoice(type, descending) {
    try {
      window.localStorage.setItem(STORAGE_KEY, type + ":" + (descending ? "desc" : "asc"));
    } catch (e) {
      // storage may be switched off
    }
  }

  function cellText(row, index) {
    var cell = row.cells[index];
    return cell ? cell.textContent.replace(/\s+/g, " ").trim() : "";
  }

  // A readable size loses the exact count, which the cell keeps beside it.
  function sortText(row, index) {
    var cell = row.cells[index];
    var exact = cell && cell.getAttribute("data-bytes");
    return exact !== null && exact !== undefined && exact !== "" ? exact : cellText(row, index);
  }

  function SortableTable(table) {
    this.table = table;
    this.body = table.querySelector("tbody.entries") || table.tBodies[table.tBodies.length - 1];
    this.icons = {
      up: table.getAttribute("data-icon-up"),
      down: table.getAttribute("data-icon-down"),
      none: table.getAttribute("data-icon-none")
    };
    this.columns = [];
    this.nameIndex = 0;
    var cells = table.tHead ? table.tHead.rows[0].cells : [];
    for (var i = 0; i < cells.length; i++) {
      var type = cells[i].getAttribute("data-sort");
      if (!COLUMNS[type]) continue;
      if (type === "name") this.nameIndex = i;
      this.columns.push(this.makeSortable(cells[i], i, type));
    }
  }

  SortableTable.prototype.makeSortable = function (cell, index, type) {
    var self = this;
    var button = document.createElement("button");
    button.type = "button";
    button.className = "sort-button";
    while (cell.firstChild) button.appendChild(cell.firstChild);
    var icon = null;
    if (this.icons.none) {
      icon = document.createElement("img");
      icon.alt = "";
      icon.width = 12;
      icon.height = 12;
      icon.src = this.icons.none;
      button.appendChild(icon);
    }
    cell.appendChild(button);
    var column = { cell: cell, index: index, type: type, icon: icon };
    button.addEventListener("click", function () {
      var descending = self.current === column ? !self.descending
                                               : COLUMNS[type].firstDescending;
      self.sort(column, descending);
      saveChoice(type, descending);
    });
    return column;
  };

  SortableTable.prototype.sort = function (column, descending) {
    var sorter = COLUMNS[column.type];
    var nameIndex = this.nameIndex;
    var rows = [];
    var all = this.body.rows;
    for (var i = 0; i < all.length; i++) {
      if (!all[i].hasAttribute("data-kind")) continue;
      rows.push({
        row: all[i],
        group: all[i].getAttribute("data-kind") === "folder" ? 0 : 1,
        key: sorter.key(sortText(all[i], column.index)),
        name: cellText(all[i], nameIndex),
        position: i
      });
    }
    var direction = descending ? -1 : 1;
    rows.sort(function (a, b) {
      if (a.group !== b.group) return a.group - b.group;
      var order = sorter.compare(a.key, b.key) * direction;
      if (order === 0 && column.type !== "name") order = compareText(a.name, b.name);
      return order || a.position - b.position;
    });
    var ordered = document.createDocumentFragment();
    for (var j = 0; j < rows.length; j++) ordered.appendChild(rows[j].row);
    // Rows that are not entries (the "empty folder" line) keep their place at the end.
    this.body.insertBefore(ordered, this.body.firstChild);

    this.current = column;
    this.descending = descending;
    for (var c = 0; c < this.columns.length; c++) {
      var other = this.columns[c];
      if (other === column) {
        other.cell.setAttribute("aria-sort", descending ? "descending" : "ascending");
      } else {
        other.cell.removeAttribute("aria-sort");
      }
      if (other.icon) {
        var src = other !== column ? this.icons.none : descending ? this.icons.down : this.icons.up;
        if (src) other.icon.src = src;
      }
    }
  };

  SortableTable.prototype.restore = function () {
    var choice = readChoice();
    if (!choice) return;
    for (var i = 0; i < this.columns.length; i++) {
      if (this.columns[i].type === choice.type) {
        this.sort(this.columns[i], choice.descending);
        return;
      }
    }
  };

  function start() {
    var tables = document.querySelectorAll("table.listing");
    for (var i = 0; i < tables.length; i++) {
      if (!tables[i].tHead) continue;
      new SortableTable(tables[i]).restore();
    }
  }

  window.LumidropSort = { sizeKey: sizeKey, dateKey: dateKey };

  if (document.readyState === "loading") {
    document.addEventListener("DOMContentLoaded", start);
  } else {
    start();
  }
})();
