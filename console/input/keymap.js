// Maps key positions, named as in `KeyboardEvent.code`, to Windows virtual keys, set-1 scan codes and the
// extended flag.

/** @typedef {{vk: number, scan: number, extended: boolean}} WinKey */

const plain = {
  Escape: [0x1b, 0x01],
  Minus: [0xbd, 0x0c],
  Equal: [0xbb, 0x0d],
  Backspace: [0x08, 0x0e],
  Tab: [0x09, 0x0f],
  BracketLeft: [0xdb, 0x1a],
  BracketRight: [0xdd, 0x1b],
  Enter: [0x0d, 0x1c],
  ControlLeft: [0xa2, 0x1d],
  Semicolon: [0xba, 0x27],
  Quote: [0xde, 0x28],
  Backquote: [0xc0, 0x29],
  ShiftLeft: [0xa0, 0x2a],
  Backslash: [0xdc, 0x2b],
  Comma: [0xbc, 0x33],
  Period: [0xbe, 0x34],
  Slash: [0xbf, 0x35],
  ShiftRight: [0xa1, 0x36],
  NumpadMultiply: [0x6a, 0x37],
  AltLeft: [0xa4, 0x38],
  Space: [0x20, 0x39],
  CapsLock: [0x14, 0x3a],
  Pause: [0x13, 0x45],
  ScrollLock: [0x91, 0x46],
  NumpadSubtract: [0x6d, 0x4a],
  NumpadAdd: [0x6b, 0x4e],
  IntlBackslash: [0xe2, 0x56],
  IntlRo: [0xc1, 0x73],
  IntlYen: [0xdc, 0x7d],
  NumpadComma: [0xc2, 0x7e],
  NumpadEqual: [0x92, 0x59],
  KanaMode: [0x15, 0x70],
  Convert: [0x1c, 0x79],
  NonConvert: [0x1d, 0x7b],
  Lang1: [0x15, 0x72],
  Lang2: [0x19, 0x71],
};

const extended = {
  NumpadEnter: [0x0d, 0x1c],
  ControlRight: [0xa3, 0x1d],
  NumpadDivide: [0x6f, 0x35],
  PrintScreen: [0x2c, 0x37],
  AltRight: [0xa5, 0x38],
  NumLock: [0x90, 0x45],
  Home: [0x24, 0x47],
  ArrowUp: [0x26, 0x48],
  PageUp: [0x21, 0x49],
  ArrowLeft: [0x25, 0x4b],
  ArrowRight: [0x27, 0x4d],
  End: [0x23, 0x4f],
  ArrowDown: [0x28, 0x50],
  PageDown: [0x22, 0x51],
  Insert: [0x2d, 0x52],
  Delete: [0x2e, 0x53],
  MetaLeft: [0x5b, 0x5b],
  MetaRight: [0x5c, 0x5c],
  ContextMenu: [0x5d, 0x5d],
  AudioVolumeMute: [0xad, 0x20],
  AudioVolumeDown: [0xae, 0x2e],
  AudioVolumeUp: [0xaf, 0x30],
  MediaTrackNext: [0xb0, 0x19],
  MediaTrackPrevious: [0xb1, 0x10],
  MediaStop: [0xb2, 0x24],
  MediaPlayPause: [0xb3, 0x22],
  BrowserBack: [0xa6, 0x6a],
  BrowserForward: [0xa7, 0x69],
  BrowserRefresh: [0xa8, 0x67],
  BrowserHome: [0xac, 0x32],
  BrowserSearch: [0xaa, 0x65],
  BrowserFavorites: [0xab, 0x66],
};

// For each key: the virtual key with Num Lock on, the scan code, and the virtual key with Num Lock off. With
// Num Lock off the keys are cursor keys without the extended flag.
const keypad = {
  Numpad7: [0x67, 0x47, 0x24],
  Numpad8: [0x68, 0x48, 0x26],
  Numpad9: [0x69, 0x49, 0x21],
  Numpad4: [0x64, 0x4b, 0x25],
  Numpad5: [0x65, 0x4c, 0x0c],
  Numpad6: [0x66, 0x4d, 0x27],
  Numpad1: [0x61, 0x4f, 0x23],
  Numpad2: [0x62, 0x50, 0x28],
  Numpad3: [0x63, 0x51, 0x22],
  Numpad0: [0x60, 0x52, 0x2d],
  NumpadDecimal: [0x6e, 0x53, 0x2e],
};

/** @type {Map<string, WinKey>} */
const positions = new Map();
for (const [code, [vk, scan]] of Object.entries(plain)) positions.set(code, { vk, scan, extended: false });
for (const [code, [vk, scan]] of Object.entries(extended)) positions.set(code, { vk, scan, extended: true });
for (const [code, [vk, scan]] of Object.entries(keypad)) positions.set(code, { vk, scan, extended: false });

/** Adds a row of letter keys, whose scan codes are consecutive. */
function addRow(/** @type {string} */ letters, /** @type {number} */ firstScan) {
  for (const [i, letter] of [...letters].entries()) {
    positions.set(`Key${letter}`, { vk: letter.charCodeAt(0), scan: firstScan + i, extended: false });
  }
}
addRow('QWERTYUIOP', 0x10);
addRow('ASDFGHJKL', 0x1e);
addRow('ZXCVBNM', 0x2c);
for (let digit = 0; digit <= 9; digit++) {
  positions.set(`Digit${digit}`, {
    vk: 0x30 + digit,
    scan: digit === 0 ? 0x0b : 0x01 + digit,
    extended: false,
  });
}
for (let n = 1; n <= 24; n++) {
  const scan = n <= 10 ? 0x3a + n : n <= 12 ? 0x4c + n : n <= 23 ? 0x57 + n : 0x76;
  positions.set(`F${n}`, { vk: 0x6f + n, scan, extended: false });
}

// Positions for events of virtual keyboards and input tools, which may have a key name but no position.
const byName = new Map([
  ['Shift', 'ShiftLeft'],
  ['Control', 'ControlLeft'],
  ['Alt', 'AltLeft'],
  ['Meta', 'MetaLeft'],
  ['AltGraph', 'AltRight'],
  [' ', 'Space'],
]);

/**
 * The Windows key at a position; null for a position that Windows does not know.
 * @param {{code: string, key: string}} event
 * @returns {WinKey | null}
 */
export function keyAt({ code, key }) {
  const cursor = /** @type {Record<string, number[]>} */ (keypad)[code];
  if (cursor && [...key].length > 1) return { vk: cursor[2], scan: cursor[1], extended: false };
  return positions.get(code) ?? (code ? null : (positions.get(byName.get(key) ?? key) ?? null));
}

/**
 * The Windows key of a shortcut. A letter or digit is the one of the user's keyboard layout, so that Ctrl+Z
 * stays Ctrl+Z on every layout. Any other key is found by its position.
 * @param {{code: string, key: string}} event
 * @returns {WinKey | null}
 */
export function shortcutKey({ code, key }) {
  if (/^[a-z]$/i.test(key)) return positions.get(`Key${key.toUpperCase()}`) ?? null;
  if (/^[0-9]$/.test(key) && !code.startsWith('Numpad')) return positions.get(`Digit${key}`) ?? null;
  return keyAt({ code, key });
}

/** The Windows key at a position; throws for a position that is not in the table. */
export function keyNamed(/** @type {string} */ code) {
  const found = positions.get(code);
  if (!found) throw new Error(`no such key position: ${code}`);
  return found;
}
