// Hands bytes to the browser as an ordinary download.

/** The time for which the browser may still read the bytes after a save. */
export const SAVING_MS = 60_000;
/** Chromium drops downloads that a page starts at more than ten a second. */
const GAP_MS = 150;
let nextSave = 0;

/** Saves the bytes under that name, now or as soon as the gap to earlier saves allows. */
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
