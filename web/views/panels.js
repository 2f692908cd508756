// What opens from the header: notifications and history.

import { h } from "../dom.js";
import { lastDuration } from "../state.js";
import { duration, moment } from "../text.js";
import { button, t } from "./parts.js";
import { resultTable } from "./result.js";

function bell(local) {
  const entries = local.notifications ?? [];
  if (entries.length === 0) return h("p", {}, t("bell.none"));
  return h("ul", { class: "entries" }, entries.map((entry) =>
    h("li", { "data-key": `notification-${entry.id}` },
      h("p", { class: "small" }, moment(entry.time)), h("p", {}, entry.text),
      button(local, "dismiss", t("bell.dismiss"), { value: entry.id }))));
}

function entry(update) {
  const seconds = lastDuration(update);
  const line = t("history.line", { time: moment(update.begun),
    cause: t(`history.${update.cause || "owner"}`), result: t(`history.${update.result}`) });
  const took = seconds === null ? "" : t("history.took", { duration: duration(seconds) });
  return h("li", { "data-key": `update-${update.begun}` },
    h("details", {}, h("summary", {}, line, took),
      h("div", { class: "scroll" },
        resultTable(update, (node) => (node.result === "done" ? node.wanted : "")))));
}

function history(local) {
  const updates = local.history ?? [];
  if (updates.length === 0) return h("p", {}, t("history.none"));
  return h("ul", { class: "entries" }, updates.map(entry));
}

export function panel({ local }) {
  if (local.panel === null) return null;
  const title = t(`${local.panel}.title`);
  return h("section", { class: "card", id: "panel", "data-key": `panel-${local.panel}`,
    "aria-label": title, tabindex: "-1" },
  h("div", { class: "row spread" }, h("h2", {}, title),
    h("button", { type: "button", class: "quiet", "data-action": "panel", "data-value": "" },
      t("close"))),
  local.panel === "bell" ? bell(local) : history(local));
}
