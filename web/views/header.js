import { h } from "../dom.js";
import { t } from "./parts.js";

function opener(local, panel, label, content) {
  return h("button", { type: "button", class: "quiet", "data-action": "panel", "data-value": panel,
    "aria-expanded": String(local.panel === panel), "aria-controls": "panel", "aria-label": label,
    title: label, id: `open-${panel}` }, content);
}

export function header({ mesh, local }) {
  const count = mesh?.notifications?.count ?? 0;
  return h("header", { "data-key": "header" },
    h("h1", {}, h("img", { src: "/icon.svg", alt: "" }), t("title")),
    h("nav", {},
      opener(local, "bell", t("bell.count", { count }),
        [h("span", { class: "bell", "aria-hidden": "true" }),
          count > 0 ? h("span", { class: "badge", "aria-hidden": "true" }, count) : null]),
      opener(local, "history", t("history.title"), t("history.title")),
      h("button", { type: "button", class: "quiet", "data-action": "signOut" }, t("signOut"))));
}
