import { h } from "../dom.js";
import { list } from "../text.js";
import { isInstalling, meshSentence, nodeName, nodeProgress, shortVersion } from "../state.js";
import { t } from "./parts.js";

const kMarks = { good: "✓", busy: "…", warn: "!" };

export function sentenceText(mesh) {
  const sentence = meshSentence(mesh);
  return t(sentence.key, { ...sentence, names: list(sentence.names ?? []) });
}

function doing(mesh, node) {
  if (isInstalling(mesh) && node.step !== "none") return t(`install.${nodeProgress(node).key}`);
  if (node.error !== "") return t("node.failed");
  if (node.staged_version === "") return null;
  return t("node.staged", { version: shortVersion(node.staged_version) });
}

function card(mesh, node) {
  const state = node.online ? "node.online" : "node.offline";
  return h("li", { class: node.online ? "node" : "node away", "data-key": `node-${node.id}` },
    h("h3", {}, nodeName(node)),
    h("p", { class: "role" }, t(node.role === "cap" ? "node.cap" : "node.satellite"), " · ",
      h("span", { class: "state" },
        h("span", { class: node.online ? "dot" : "dot off", "aria-hidden": "true" }), t(state))),
    h("p", { class: "version" }, shortVersion(node.version) || t("node.unknown")),
    h("p", { class: "model" }, node.model),
    h("p", { class: "doing" }, doing(mesh, node) ?? ""));
}

export function glance({ mesh }) {
  const { tone } = meshSentence(mesh);
  return h("section", { "aria-labelledby": "nodes-title", "data-key": "glance" },
    h("h2", { id: "nodes-title", class: `sentence ${tone}` },
      h("span", { class: "mark", "aria-hidden": "true" }, kMarks[tone]), sentenceText(mesh)),
    h("ul", { class: "nodes" }, mesh.nodes.map((node) => card(mesh, node))));
}
