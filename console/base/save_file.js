// Saves bytes as a file by passing them to the browser as an ordinary download.

/** The time after a save for which the browser may still read the bytes. */
export const SAVING_MS = 60_000;
/** The pause between saves. Chromium drops downloads when a page starts more than ten of them a second. */
const GAP_MS = 150;
let nextSave = 0;

/** Saves the bytes under this name, at once or, soon after another save, when GAP_MS have passed since it. */
export function saveFile(/** @type {Blob} */ blob, /** @type {string} */ name) {
  const now = performance.now();
  const at = Math.max(now, nextSave);
  nextSave = at + GAP_MS;
  if (at === now) download(blob, name);
  else setTimeout(() => download(blob, name), at - now);
}

function download(/** @type {Blob} */ blob, /** @type {string} */ name) {
  const url = URL.createObjectURL(blob);
  const link = document.createElement('a');
  link.href = url;
  link.download = name;
  link.click();
  setTimeout(() => URL.revokeObjectURL(url), SAVING_MS);
}
