// Requests to the relay's HTTP interface, in JSON. A request that fails rejects with an ApiError.

export class ApiError extends Error {
  /** @param {number} status the HTTP status; 0 when the relay was not reached @param {string} message */
  constructor(status, message) {
    super(message);
    this.status = status;
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
 * @returns {Promise<Record<string, unknown>>}
 */
async function request(method, path, body) {
  let response;
  try {
    response = await fetch(path, {
      method,
      headers: body ? { 'Content-Type': 'application/json' } : {},
      body: body ? JSON.stringify(body) : undefined,
      credentials: 'same-origin',
      cache: 'no-store',
    });
  } catch {
    throw new ApiError(0, '');
  }
  const answer = await response.json().catch(() => ({}));
  if (!response.ok)
    throw new ApiError(response.status, typeof answer?.error === 'string' ? answer.error : '');
  return answer;
}

export const login = (/** @type {string} */ name, /** @type {string} */ password) =>
  request('POST', '/api/login', { name, password });
export const logout = () => request('POST', '/api/logout');
export const me = () => request('GET', '/api/me');
export const changePassword = (/** @type {string} */ before, /** @type {string} */ after) =>
  request('POST', '/api/password', { old: before, new: after });
export const forget = (/** @type {string} */ id) =>
  request('DELETE', `/api/agents/${encodeURIComponent(id)}`);
