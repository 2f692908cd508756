// What several views show alike.

import { h } from "../dom.js";
import { errorText, percent, t } from "../text.js";

/** A button; while its action runs it says so and cannot be pressed again. */
export function button(local, action, text, options = {}) {
  const running = local.busy === action;
  // The running one keeps the focus, so it is not disabled for the browser: others come instead of
  // it, each with a key of its own, so that a second press is not theirs.
  return h("button", {
    type: "button", "data-action": action, "data-value": options.value, "data-key": action,
    class: options.kind ?? "plain", disabled: (local.busy !== null && !running) || options.disabled,
    "aria-disabled": running ? "true" : null, "aria-busy": running ? "true" : null,
  }, running && options.busy ? options.busy : text);
}

/** A bar with its name, and the same in words. `id` tells it from others. */
export function bar(id, name, part, note = "") {
  const value = Math.max(0, Math.min(100, Math.floor(part)));
  return h("div", { class: "bar", "data-key": id },
    h("span", { class: "bar-name", id: `${id}-name` }, name),
    h("progress", { max: 100, value, "aria-labelledby": `${id}-name` }),
    h("span", { class: "bar-note" }, note === "" ? percent(value) : `${percent(value)}, ${note}`));
}

/** What went wrong and what to do. */
export function problem(error) {
  if (error === null) return null;
  const { what, doing } = errorText(error);
  return h("div", { class: "box bad", role: "alert", "data-key": "problem" },
    h("p", {}, h("strong", {}, what)), h("p", {}, doing.replace("{wait}", error.retryAfter || 10)));
}

export function note(text, kind = "info") {
  return h("p", { class: `box ${kind}` }, text);
}

export function facts(pairs) {
  return h("dl", { class: "facts" }, pairs.filter(([, value]) => value)
    .map(([name, value]) => h("div", {}, h("dt", {}, name), h("dd", {}, value))));
}

export { t };
