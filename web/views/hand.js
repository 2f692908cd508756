// Patches that somebody brings by hand, one for each model.

import { h } from "../dom.js";
import { shortVersion } from "../state.js";
import { bytes, list, percent } from "../text.js";
import { bar, button, note, t } from "./parts.js";

export function modelsOf(mesh) {
  return [...new Set(mesh.nodes.map((node) => node.model).filter((model) => model !== ""))].sort();
}

function fileLine(local, model, entry) {
  return h("li", { "data-key": `file-${model}` },
    h("p", {}, t("hand.file", { name: entry.file.name, model, size: bytes(entry.file.size),
      version: shortVersion(entry.version) })),
    entry.sum ? h("p", { class: "small" }, `${t("hand.sum")}: `, h("code", {}, entry.sum)) : null,
    button(local, "removeFile", t("hand.remove"), { value: model }));
}

function progress({ mesh, local }) {
  const { sending } = local.hand;
  if (sending.sent < sending.whole) {
    const part = (100 * sending.sent) / sending.whole;
    return [h("p", {}, t("hand.busy", { percent: percent(part) })),
      bar("sending", t("hand.button"), part)];
  }
  return [h("p", {}, t("hand.nodes")), mesh.transfers.filter(({ whole }) => whole > 0)
    .map(({ name, done, whole }) => bar(`hand-${name}`, name, (100 * done) / whole))];
}

export function hand(model) {
  const { mesh, local } = model;
  const models = modelsOf(mesh);
  const { files, refused, sending } = local.hand;
  const missing = models.filter((one) => !(one in files));
  const chosen = Object.keys(files).length;
  const versions = new Set(Object.values(files).map(({ version }) => version));
  return h("details", { class: "card", "data-key": "hand" },
    h("summary", {}, t("hand.title")),
    h("div", { class: "drop", "data-drop": "files" },
      h("p", {}, t("hand.text", { models: list(models) })),
      h("label", { class: "button plain", for: "files" }, t("hand.choose")),
      h("input", { type: "file", id: "files", class: "unseen", multiple: true,
        "data-change": "files", disabled: local.busy !== null })),
    refused.map((line) => note(line, "bad")),
    h("ul", { class: "files" },
      Object.entries(files).map(([name, entry]) => fileLine(local, name, entry))),
    chosen > 0 && missing.length > 0 ? note(t("hand.missing", { models: list(missing) })) : null,
    versions.size > 1 ? note(t("hand.different"), "bad") : null,
    sending ? progress(model) : null,
    chosen > 0 ? button(local, "send", t("hand.button"), { kind: "main",
      disabled: missing.length > 0 || versions.size > 1 }) : null);
}
