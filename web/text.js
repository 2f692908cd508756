// The page's texts in the browser's language.

import de from "./text/de.js";
import en from "./text/en.js";

const kLanguages = { de, en };

/** Languages as firmware names them, for licences and release notes. */
const kFirmwareNames = { de: "ger", en: "enu", fr: "fre" };

function chooseLanguage() {
  const wanted = (navigator.languages ?? [navigator.language]).map((tag) => tag.slice(0, 2));
  return wanted.find((tag) => tag in kLanguages) ?? "en";
}

export const language = chooseLanguage();
export const firmwareLanguage =
  kFirmwareNames[(navigator.language ?? "en").slice(0, 2)] ?? kFirmwareNames.en;

// "en-GB" lists and dates as its readers are used to.
const locale = (navigator.languages ?? []).find((tag) => tag.startsWith(language)) ?? language;

const texts = kLanguages[language];

/** The text of a key, with {name} replaced by values.name. */
export function t(key, values = {}) {
  const text = texts[key] ?? en[key] ?? key;
  return text.replace(/\{(\w+)\}/g, (whole, name) => String(values[name] ?? whole));
}

function has(key) {
  return key in texts;
}

/** "a, b and c" */
export function list(words) {
  return new Intl.ListFormat(locale, { type: "conjunction" }).format(words);
}

export function bytes(count) {
  const mebibytes = count / (1 << 20);
  const digits = mebibytes < 10 ? 1 : 0;
  return `${mebibytes.toLocaleString(locale, { maximumFractionDigits: digits })} MiB`;
}

export function percent(part) {
  return `${Math.floor(part)} %`;
}

export function duration(seconds) {
  const whole = Math.max(1, Math.round(seconds));
  if (whole < 100) return t("time.seconds", { count: whole });
  return t("time.minutes", { count: Math.round(whole / 60) });
}

export function moment(seconds) {
  return new Date(seconds * 1000).toLocaleString(locale, { dateStyle: "medium",
    timeStyle: "short" });
}

/** What an error means and what to do about it. */
export function errorText(error) {
  const known = `error.${error.code}`;
  const what = has(known) ? t(known) : error.message || t("error.unknown");
  const doing = has(`${known}.do`) ? t(`${known}.do`) : t("error.do");
  return { what, doing, code: error.code };
}
