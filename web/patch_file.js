// What a patch file says of itself, read here before anything is sent: its first members are small.

const kBlock = 512;
const kHead = 256 * 1024;
const kLargestHash = 512 * 1024 * 1024;

function textOf(bytes, begin, length) {
  const end = bytes.indexOf(0, begin);
  const stop = end < 0 || end > begin + length ? begin + length : end;
  return new TextDecoder().decode(bytes.subarray(begin, stop));
}

/** The text of one member of a tar's beginning; null when it is not there. */
export function memberText(bytes, wanted) {
  for (let at = 0; at + kBlock <= bytes.length;) {
    const name = textOf(bytes, at, 100);
    const size = parseInt(textOf(bytes, at + 124, 12).trim() || "0", 8);
    if (name === "" || !Number.isFinite(size) || textOf(bytes, at + 257, 5) !== "ustar") return null;
    const begin = at + kBlock;
    if (name === wanted) {
      return begin + size <= bytes.length
        ? new TextDecoder().decode(bytes.subarray(begin, begin + size)) : null;
    }
    at = begin + Math.ceil(size / kBlock) * kBlock;
  }
  return null;
}

/** One value of a key=value text. */
export function valueOf(text, key) {
  const line = text.split("\n").filter((one) => one.startsWith(`${key}=`)).at(-1);
  return line === undefined ? "" : line.slice(key.length + 1).replace(/^"(.*)"$/, "$1");
}

/** Model and version of a patch file; null when it is none. */
export async function describePatch(file) {
  const bytes = new Uint8Array(await file.slice(0, kHead).arrayBuffer());
  const text = memberText(bytes, "VERSION");
  const model = text === null ? "" : valueOf(text, "unique");
  return model === "" ? null : { model, version: valueOf(text, "version") };
}

/** The file's SHA-256 in hexadecimal; null when it is too large for that, or the browser cannot. */
export async function sha256(file) {
  if (file.size > kLargestHash || !globalThis.crypto?.subtle) return null;
  const hash = new Uint8Array(await crypto.subtle.digest("SHA-256", await file.arrayBuffer()));
  return [...hash].map((byte) => byte.toString(16).padStart(2, "0")).join("");
}
