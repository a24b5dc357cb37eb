// The visitors' address on Home: large enough to read aloud, copied with one click, and as
// a QR code that a phone on the same network opens by scanning.

import { T, notify } from "./api.js";

let shown = "";

function link() {
  return document.getElementById("home-address");
}

// Shows `address`; `reachable` says whether the server answers at it now. The image is
// only fetched again when the address itself changes.
export function showAddress(address, reachable) {
  const qr = document.getElementById("home-qr");
  const caption = document.getElementById("home-qr-caption");
  if (address && address !== shown) {
    shown = address;
    link().textContent = address;
    link().href = address;
    qr.src = `/api/v1/qr?text=${encodeURIComponent(address)}`;
    qr.alt = T("%s 주소의 QR 코드", address);
  }
  qr.hidden = !shown;
  qr.classList.toggle("is-stale", !reachable);
  caption.textContent = !shown
    ? ""
    : reachable
      ? T("같은 네트워크의 휴대폰 카메라로 찍으면 열립니다.")
      : T("서버가 멈춰 있어 지금은 열리지 않습니다.");
}

// Selects the address on the page, so that the owner can copy it by hand when the
// clipboard is refused; tries the older copy command on the selection too.
function copyBySelection() {
  const range = document.createRange();
  range.selectNodeContents(link());
  const selection = window.getSelection();
  selection.removeAllRanges();
  selection.addRange(range);
  try {
    return document.execCommand("copy");
  } catch {
    return false;
  }
}

async function copyAddress() {
  if (!shown) return;
  try {
    await navigator.clipboard.writeText(shown);
    notify(T("복사했습니다."));
    return;
  } catch {
    // No clipboard interface, or the browser said no.
  }
  if (copyBySelection()) notify(T("복사했습니다."));
  else notify(T("복사하지 못했습니다. 주소를 직접 선택하세요."), true);
}

export function initAddressCard() {
  document.getElementById("home-copy").addEventListener("click", copyAddress);
}
