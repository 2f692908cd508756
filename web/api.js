// The web API: calls, the session, errors.

const kToken = "kalo.token";
const kUser = "kalo.user";
const kUse = "kalo.used";
const kNotAllowed = 7006;
const kSessionErrors = [7003, 7004, 7005];

/** What the server answered instead of data. Code 0: it did not answer at all. */
export class ApiError extends Error {
  constructor(code, message, retryAfter = 0) {
    super(message);
    this.code = code;
    this.retryAfter = retryAfter;
  }

  get isEndOfSession() {
    return kSessionErrors.includes(this.code);
  }

  /** Whether asking again is no use. */
  get isFinal() {
    return this.isEndOfSession || this.code === kNotAllowed;
  }
}

/**
 * The session: the cookie is the browser's, the token is ours to send. All tabs have the same one, as
 * they have the same cookie; without it the token is good for nothing.
 */
export const session = {
  get token() { return localStorage.getItem(kToken) ?? ""; },
  get user() { return localStorage.getItem(kUser) ?? ""; },
  /** When somebody last did something in any tab. */
  get lastUse() { return Number(localStorage.getItem(kUse)) || 0; },
  touch() {
    localStorage.setItem(kUse, String(Date.now()));
  },
  keep(user, token) {
    localStorage.setItem(kUser, user);
    localStorage.setItem(kToken, token);
    this.touch();
  },
  forget() {
    localStorage.removeItem(kToken);
  },
};

export function path(api, version, method) {
  return `/webapi/${api}/${version}/${method}`;
}

/** Posts to a row; what comes back is the Response, whatever it says. */
export async function post(api, version, method, params = {}, options = {}) {
  const headers = {
    "Content-Type": "application/json", "X-KALO-Token": session.token, ...options.headers,
  };
  try {
    return await fetch(path(api, version, method), {
      method: "POST", credentials: "same-origin", cache: "no-store", headers,
      body: JSON.stringify(params), signal: options.signal,
    });
  } catch (error) {
    if (error.name === "AbortError") throw error;
    throw new ApiError(0, "");
  }
}

/** The data of an answer's text. */
export function dataOf(text, retryAfter = 0) {
  let envelope = null;
  try {
    envelope = JSON.parse(text);
  } catch {
    // An answer that is none is treated below.
  }
  if (envelope?.success === true) return envelope.data;
  const error = envelope?.error;
  if (typeof error?.code !== "number") throw new ApiError(0, "");
  throw new ApiError(error.code, String(error.message ?? ""), retryAfter);
}

/** Calls a row and gives its data; throws ApiError. */
export async function call(api, version, method, params = {}, options = {}) {
  const response = await post(api, version, method, params, options);
  return dataOf(await response.text(), Number(response.headers.get("Retry-After")) || 0);
}

export async function signIn(user, password) {
  session.forget();
  const data = await call("KALO.Core.Auth", 1, "login", { user, password });
  session.keep(user, data.token);
}

/** Signs out; the session is over here even when the server does not hear it. */
export async function signOut() {
  try {
    await call("KALO.Core.Auth", 1, "logout");
  } catch (error) {
    if (!(error instanceof ApiError)) throw error;
  } finally {
    session.forget();
  }
}

/**
 * Uploads one patch file for each model.
 * @param files model -> File
 * @param onProgress called with bytes sent and bytes in all
 * @param signal ends it
 */
export function upload(files, onProgress, signal) {
  const form = new FormData();
  for (const [model, file] of Object.entries(files)) form.append(`${model}_file`, file, "patch");
  return new Promise((resolve, reject) => {
    const request = new XMLHttpRequest();
    request.open("POST", path("KALO.Mesh.Upgrade.Patch", 1, "upload"));
    request.setRequestHeader("X-KALO-Token", session.token);
    request.upload.addEventListener("progress", (event) => onProgress(event.loaded, event.total));
    request.addEventListener("load", () => {
      try {
        resolve(dataOf(request.responseText));
      } catch (error) {
        reject(error);
      }
    });
    for (const end of ["error", "abort"]) {
      request.addEventListener(end, () => reject(new ApiError(0, "")));
    }
    signal.addEventListener("abort", () => request.abort());
    request.send(form);
  });
}
