// Judges from the machine's listings whether an upload arrived, because the machine does not confirm uploads.

/** @typedef {import('../listing.js').Entry} Entry */

/**
 * The result of an upload, and a key of texts.transferRemarks.
 * @param {number} size the size of the uploaded file
 * @param {Entry | undefined} before the file's entry in the listing before the upload
 * @param {Entry | undefined} after the file's entry in the listing after the upload
 * @returns {{state: 'done' | 'failed', remark: string}}
 */
export function arrivalOf(size, before, after) {
  if (!after || after.dir) return { state: 'failed', remark: 'notThere' };
  // The agent drops an upload without an error when it cannot open the existing file.
  const untouched = before?.size === after.size && before.mtime === after.mtime;
  if (untouched) return { state: 'failed', remark: 'notReplaced' };
  return after.size === size ? { state: 'done', remark: '' } : { state: 'failed', remark: 'cutShort' };
}

/**
 * The result of a download whose size differs from the listed one. A file that grows while it is sent is
 * complete when the number of bytes lies between its sizes before and after.
 * @param {number} received
 * @param {number} listed the size before the download
 * @param {Entry | undefined} after the file's entry in a listing after the download
 * @returns {{state: 'done' | 'failed', remark: string}}
 */
export function completenessOf(received, listed, after) {
  const whole = after && (received === after.size || (listed <= received && received <= after.size));
  return whole ? { state: 'done', remark: 'fileChanged' } : { state: 'failed', remark: 'otherSize' };
}
