// The relay's JSON requests.

class ApiError extends Error {
  /** @param {number} status 0 when the relay was not reached */
  constructor(status, /** @type {string} */ message) {
    super(message);
    this.status = status;
  }
}

async function request(/** @type {string} */ method, /** @type {string} */ path, /** @type {object} */ body) {
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
