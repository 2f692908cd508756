import { h } from "../dom.js";
import { lastDuration, shortVersion } from "../state.js";
import { duration } from "../text.js";
import { button, t } from "./parts.js";

// What a node runs after it: what it said itself, if it is there to say it.
function after(mesh, entry) {
  if (entry.result === "done") return entry.wanted;
  return mesh.nodes.find((node) => node.id === entry.id)?.version || entry.from;
}

export function resultTable(update, afterOf) {
  return h("table", {}, h("thead", {}, h("tr", {},
    ["result.node", "result.before", "result.after", "result.result"].map((key) =>
      h("th", { scope: "col" }, t(key))))),
  h("tbody", {}, update.nodes.map((entry) => h("tr", { "data-key": `row-${entry.id}` },
    h("th", { scope: "row" }, entry.name || `#${entry.id}`),
    h("td", {}, shortVersion(entry.from)),
    h("td", {}, shortVersion(afterOf(entry))),
    h("td", {}, t(`result.${entry.result}`),
      entry.error ? h("p", { class: "small" }, entry.error) : null)))));
}

export function result({ mesh, local }) {
  const last = mesh.last_update;
  const good = last.result === "finished";
  const seconds = lastDuration(last);
  return [h("h3", { class: good ? "good" : "bad" }, t(good ? "done.title" : "failed.title")),
    h("p", {}, t(good ? "done.text" : "failed.text"),
      seconds === null ? null : ` ${t("result.took", { time: duration(seconds) })}`),
    good ? null : h("p", {}, t("failed.do")),
    h("div", { class: "scroll" }, resultTable(last, (entry) => after(mesh, entry))),
    button(local, "putAway", t("result.close"), { kind: "main" })];
}
