// The gallery's full-size viewer: a thumbnail opens its picture in a modal dialog, the
// buttons and the arrow keys step through the folder's pictures (round the ends), and
// Escape or the close button shuts it. Without scripts a thumbnail opens the file itself.

const thumbs = [...document.querySelectorAll("#gallery-grid a.gallery-thumb")];
const viewer = document.getElementById("gallery-viewer");
const full = document.getElementById("gallery-full");
const caption = document.getElementById("gallery-caption");
const position = document.getElementById("gallery-position");
let current = 0;

function show(index) {
  current = (index + thumbs.length) % thumbs.length;
  const link = thumbs[current];
  const name = link.querySelector("span").textContent;
  full.src = link.href;
  full.alt = name;
  caption.textContent = name;
  position.textContent = `${current + 1} / ${thumbs.length}`;
  // The next picture is fetched while this one is looked at.
  if (thumbs.length > 1) new Image().src = thumbs[(current + 1) % thumbs.length].href;
}

thumbs.forEach((link, index) => {
  link.addEventListener("click", (event) => {
    // A new tab or window keeps the browser's own meaning.
    if (event.button !== 0 || event.ctrlKey || event.metaKey || event.shiftKey) return;
    event.preventDefault();
    show(index);
    if (!viewer.open) viewer.showModal();
  });
});

document.getElementById("gallery-previous").addEventListener("click", () => show(current - 1));
document.getElementById("gallery-next").addEventListener("click", () => show(current + 1));
document.getElementById("gallery-close").addEventListener("click", () => viewer.close());
viewer.addEventListener("keydown", (event) => {
  const step = { ArrowLeft: -1, ArrowRight: 1 }[event.key];
  if (step === undefined) return;
  event.preventDefault();
  show(current + step);
});
// A click on the dark backdrop lands on the dialog itself.
viewer.addEventListener("click", (event) => {
  if (event.target === viewer) viewer.close();
});
// Back on the page, the keyboard continues from the picture seen last.
viewer.addEventListener("close", () => {
  full.removeAttribute("src");
  thumbs[current]?.focus();
});
