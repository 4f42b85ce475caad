// Requests to the relay's HTTP interface, in JSON. A request that fails rejects with an ApiError.

export class ApiError extends Error {
  /**
   * @param {number} status the HTTP status; 0 when the relay was not reached
   * @param {string} message
   * @param {string} [code] the relay's code for what is wrong
   */
  constructor(status, message, code = '') {
    super(message);
    this.status = status;
    this.code = code;
  }
}

/** The HTTP status of a failed request, 0 when the relay was not reached; undefined for any other error. */
export function statusOf(/** @type {unknown} */ error) {
  return error instanceof ApiError ? error.status : undefined;
}

/**
 * @param {string} method
 * @param {string} path
 * @param {object} [body]
 * @param {Record<string, string>} [more] further headers
 * @returns {Promise<Record<string, unknown>>}
 */
async function request(method, path, body, more = {}) {
  let response;
  try {
    response = await fetch(path, {
      method,
      headers: { ...(body ? { 'Content-Type': 'application/json' } : {}), ...more },
      body: body ? JSON.stringify(body) : undefined,
      credentials: 'same-origin',
      cache: 'no-store',
    });
  } catch {
    throw new ApiError(0, '');
  }
  const answer = await response.json().catch(() => ({}));
  if (!response.ok)
    throw new ApiError(response.status, String(answer?.error ?? ''), String(answer?.code ?? ''));
  return answer;
}

/**
 * unattended: the page makes the request by itself, so that it does not count as use of the log-in.
 * @typedef {{unattended?: boolean}} Asking
 */
/** @param {string} path @param {Asking} [asking] */
export const get = (path, { unattended = false } = {}) =>
  request('GET', path, undefined, unattended ? { 'Vantelink-Unattended': '1' } : {});
/** @param {string} path @param {object} [body] */
export const post = (path, body = {}) => request('POST', path, body);
/** @param {string} path @param {object} body */
export const put = (path, body) => request('PUT', path, body);
/** @param {string} path @param {object} body */
export const patch = (path, body) => request('PATCH', path, body);
export const remove = (/** @type {string} */ path) => request('DELETE', path);

export const login = (/** @type {string} */ name, /** @type {string} */ password) =>
  request('POST', '/api/login', { name, password });
export const logout = () => request('POST', '/api/logout');
export const me = () => request('GET', '/api/me');
export const changePassword = (/** @type {string} */ before, /** @type {string} */ after) =>
  request('POST', '/api/password', { old: before, new: after });
export const forget = (/** @type {string} */ id) =>
  request('DELETE', `/api/agents/${encodeURIComponent(id)}`);
