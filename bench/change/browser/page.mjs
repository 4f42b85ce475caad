// What runs in the page of each viewer.

/**
 * Looks at the picture before each display of the page, and keeps the number in its corner; as
 * tests/doubles/scripted_picture.h paints it. The function is turned into text, so it uses nothing from outside.
 * @param {string} selector of the canvas
 */
export function watchPicture(selector) {
  const BITS = 16;
  const SQUARE = 16;
  const REPORT_MS = 50;
  /** @type {{number: number, at: number, pictures: number, bytes: number}[]} */
  let displays = [];
  let [pictures, bytes, isChanged] = [0, 0, false];
  const canvas = () => /** @type {HTMLCanvasElement | null} */ (document.querySelector(selector));
  const corner = document.createElement('canvas');
  corner.width = BITS * SQUARE;
  corner.height = SQUARE;
  const context = corner.getContext('2d', { willReadFrequently: true });
  const draw = CanvasRenderingContext2D.prototype.drawImage;

  CanvasRenderingContext2D.prototype.drawImage = function (/** @type {unknown[]} */ ...words) {
    if (this.canvas === canvas()) {
      pictures++;
      isChanged = true;
    }
    return Reflect.apply(draw, this, words);
  };
  // noVNC looks at the prototype of its connection, so that must be the browser's own.
  globalThis.WebSocket = new Proxy(WebSocket, {
    construct(target, words) {
      /** @type {WebSocket} */
      const socket = Reflect.construct(target, words);
      socket.addEventListener('message', ({ data }) => {
        bytes += data.byteLength ?? data.size ?? data.length;
      });
      return socket;
    },
  });

  function number() {
    context?.drawImage(/** @type {HTMLCanvasElement} */ (canvas()), 0, 0);
    let shown = 0;
    for (let bit = 0; bit < BITS; bit++) {
      const pixel = context?.getImageData(bit * SQUARE + SQUARE / 2, SQUARE / 2, 1, 1).data;
      if (pixel && pixel[1] > 127) shown |= 1 << bit;
    }
    return shown;
  }
  function look() {
    if (isChanged) displays.push({ number: number(), at: performance.now(), pictures, bytes });
    isChanged = false;
    requestAnimationFrame(look);
  }
  requestAnimationFrame(look);
  setInterval(() => {
    const { tell } = /** @type {{tell?: (displays: object[]) => void}} */ (globalThis);
    if (!tell || !displays.length) return;
    tell(displays);
    displays = [];
  }, REPORT_MS);
}
