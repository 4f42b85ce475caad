// The browser's question before its user leaves the page, closes it or loads it again.

/**
 * Makes the browser ask while `inUse` returns true. The browser chooses the words of its question.
 * @param {() => boolean} inUse
 */
export function askBeforeLeaving(inUse) {
  addEventListener('beforeunload', (event) => {
    if (inUse()) event.preventDefault();
  });
}
