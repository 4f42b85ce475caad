// The session's toolbar: its menus, buttons and the dialog for typing a text.
import { byId } from '../base/dom.js';
import { Msg } from '../link/messages.js';
import { attachFullScreen } from './bar/full_screen.js';

/** @typedef {import('../input/remote_input.js').RemoteInput} RemoteInput */
/** @typedef {import('./stream.js').Stream} Stream */

/**
 * @param {object} parts
 * @param {import('../link/session_channel.js').SessionChannel} parts.channel
 * @param {Stream} parts.stream
 * @param {RemoteInput} parts.input
 * @param {() => void} parts.onEnd called when the representative ends the session
 */
export function attachToolbar({ channel, stream, input, onEnd }) {
  byId('session-end').addEventListener('click', onEnd);
  attachFullScreen();
  attachPictureMenu(stream);
  attachKeysMenu(input);
  byId('attention').addEventListener('click', () => channel.send(Msg.SecureAttention));
  attachTypeDialog(input);
  attachMenuClosing();
}

function attachPictureMenu(/** @type {Stream} */ stream) {
  const slowLine = byId('slow-line', HTMLInputElement);
  slowLine.addEventListener('change', () => {
    stream.slowLine = slowLine.checked;
  });
  byId('picture-restart').addEventListener('click', () => stream.start());
  const codec = byId('codec', HTMLSelectElement);
  codec.addEventListener('change', () =>
    stream.chooseCodec(/** @type {import('../picture/picture.js').Codec} */ (codec.value)),
  );
  byId('show-pointer').addEventListener('change', () => stream.sendPointer());
  byId('monitor-refresh').addEventListener('click', () => stream.requestThumbnails());
}

function attachKeysMenu(/** @type {RemoteInput} */ input) {
  const mode = byId('key-mode', HTMLSelectElement);
  mode.addEventListener('change', () =>
    input.setMode(/** @type {import('../input/keyboard.js').KeyMode} */ (mode.value)),
  );
  byId('show-keyboard').addEventListener('click', () => input.showKeyboard());
  byId('keys-menu').addEventListener('click', ({ target }) => {
    const combination = target instanceof HTMLElement && target.dataset.combination;
    if (combination) input.pressCombination(combination);
  });
}

function attachTypeDialog(/** @type {RemoteInput} */ input) {
  const dialog = byId('type-dialog', HTMLDialogElement);
  const box = byId('type-box', HTMLTextAreaElement);
  byId('type-text').addEventListener('click', () => dialog.showModal());
  dialog.addEventListener('close', () => {
    if (dialog.returnValue === 'type') input.type(box.value);
    box.value = '';
    dialog.returnValue = '';
  });
}

/** Closes a menu after a click elsewhere, after Escape, and after a click on one of the menu's buttons. */
function attachMenuClosing() {
  const menus = /** @type {HTMLDetailsElement[]} */ ([...document.querySelectorAll('.menu')]);
  addEventListener('pointerdown', ({ target }) => {
    for (const menu of menus) if (!menu.contains(/** @type {Node} */ (target))) menu.open = false;
  });
  for (const menu of menus) {
    menu.addEventListener('keydown', (event) => {
      if (event.key !== 'Escape') return;
      menu.open = false;
      menu.querySelector('summary')?.focus();
    });
    menu.addEventListener('click', ({ target }) => {
      if (target instanceof Element && target.closest('button')) menu.open = false;
    });
  }
}
