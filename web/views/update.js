// The way of an update, one view for each phase.

import { h } from "../dom.js";
import { affectedNodes, isReadyEverywhere, lastDuration, nodeName, nodeProgress, shortVersion,
  totalOf, transferBars } from "../state.js";
import { bytes, duration, firmwareLanguage, list } from "../text.js";
import { bar, button, facts, note, t } from "./parts.js";
import { steps } from "./steps.js";
import { result } from "./result.js";

const kEndings = {
  failed: "found.failed", canceled: "found.canceled", no_enough_free_space: "found.space",
};

function endingKey(mesh, local) {
  // A download that is cancelled may still say that it failed.
  const key = local.canceled ? kEndings.canceled : kEndings[mesh.download?.status];
  return local.downloadSeen ? key : undefined;
}

/** How the last download that this page saw ended, if not well; else null. */
export function endingOf(mesh, local) {
  const key = endingKey(mesh, local);
  return key === undefined ? null : t(key);
}

function ending({ mesh, local }) {
  const key = endingKey(mesh, local);
  if (key === undefined) return null;
  const space = key === "found.space";
  return [note(t(key), space || key === "found.failed" ? "bad" : "info"),
    space ? button(local, "discard", t("found.discard")) : null];
}

function idle(model) {
  const { local } = model;
  return [h("p", {}, t("idle.text")), ending(model),
    local.nothing ? note(t(local.nothing), "good") : null,
    button(local, "check", t("idle.check"), { kind: "main", busy: t("idle.busy") })];
}

function notesOf(local) {
  const texts = new Set((local.releases ?? [])
    .map(({ notes }) => notes[firmwareLanguage] ?? notes.enu ?? Object.values(notes)[0] ?? "")
    .filter((text) => text !== ""));
  if (texts.size === 0) return null;
  return h("details", { open: true, "data-key": "notes" }, h("summary", {}, t("found.notes")),
    [...texts].map((text) => h("p", { class: "lines" }, text)));
}

function found(model) {
  const { mesh, local } = model;
  const { offer } = local;
  const size = (local.releases ?? []).map((one) => `${one.model}: ${bytes(one.size)}`).join(", ");
  const version = shortVersion(offer.version);
  const behind = mesh.nodes.filter((node) => node.version !== offer.version).map(nodeName);
  return [h("h3", {}, t("found.title", { version })),
    offer.beta ? note(t("found.beta"), "warn") : null,
    facts([[t("found.kind"), t(offer.small ? "found.small" : "found.full")],
      [t("found.size"), size], [t("found.nodes"), list(behind)]]),
    notesOf(local), ending(model), h("p", {}, t("found.text")),
    button(local, "download", t("found.download"), { kind: "main", busy: t("found.busy") })];
}

function amount(local, name, done, whole) {
  const rate = local.rates.get(name);
  const values = { done: bytes(done), whole: bytes(whole) };
  if (!rate) return t("download.amount", values);
  return t("download.rate", { ...values, rate: bytes(rate), left: duration((whole - done) / rate) });
}

function transferring(model, phase) {
  const { mesh, local } = model;
  const { fetches, nodes } = transferBars(mesh);
  const version = shortVersion(mesh.download?.version);
  const fetched = phase === "distributing";
  return [h("h3", {}, t(fetched ? "distribute.title" : "download.title", { version })),
    bar("download", t("download.whole"), fetched ? 100 : mesh.download?.percent ?? 0),
    fetches.map(({ name, done, whole }) =>
      bar(name, name.replace("download-", ""), whole > 0 ? (100 * done) / whole : 0,
        amount(local, name, done, whole))),
    nodes.map(({ node, done, whole, state }) =>
      bar(`to-${node.id}`, nodeName(node), (100 * done) / whole,
        state === "going" ? amount(local, `node-${node.id}`, done, whole)
          : t(state === "has" ? "distribute.has" : "distribute.waits"))),
    h("p", {}, t("distribute.text")),
    fetched ? null
      : button(local, "cancel", t("download.cancel"), { busy: t("download.canceling") })];
}

function ready({ mesh, local }) {
  const names = list(mesh.nodes.filter((node) => node.staged_version !== "").map(nodeName));
  return [h("h3", {}, t("ready.title")),
    h("p", {}, isReadyEverywhere(mesh) && mesh.nodes.every((node) => node.online) ? t("ready.all") : t("ready.some", { names })),
    h("p", {}, t("ready.text")),
    local.refused ? note(t("licence.refused"), "info") : null,
    h("p", { class: "row" },
      button(local, "precheck", t("ready.button"), { kind: "main", busy: t("ready.busy") }),
      button(local, "discard", t("ready.discard")))];
}

function findings({ local }) {
  const info = local.precheck.precheck_info;
  return [h("h3", {}, t("findings.title")), h("p", { class: "lines" }, info.leading_note),
    h("p", { class: "lines box warn" }, info.message),
    info.can_continue ? null : note(t("findings.stop"), "bad"),
    h("p", { class: "row" },
      info.can_continue ? button(local, "goOn", t("findings.continue"), { kind: "main" }) : null,
      button(local, "precheck", t("findings.recheck"), { busy: t("ready.busy") }),
      button(local, "discard", t("ready.discard")))];
}

function licence({ local }) {
  return [h("h3", { id: "licence-title" }, t("licence.title")),
    h("div", { class: "licence lines", tabindex: "0", role: "region",
      "aria-labelledby": "licence-title" }, local.precheck.eulacheck_content),
    h("p", {}, h("label", { class: "check" },
      h("input", { type: "checkbox", id: "agree", "data-change": "tick", checked: local.ticked }), t("licence.agree"))),
    h("p", { class: "row" },
      button(local, "agree", t("licence.next"), { kind: "main", disabled: !local.ticked }),
      button(local, "refuse", t("licence.refuse")))];
}

function confirm({ mesh, local }) {
  const nodes = affectedNodes(mesh);
  const rooms = nodes.filter((node) => node.id !== 0).map(nodeName);
  const away = mesh.nodes.filter((node) => !node.online).map(nodeName);
  const last = lastDuration(mesh.last_update);
  return [h("h3", {}, t("confirm.title")),
    h("ul", { class: "points" },
      rooms.length > 0 ? h("li", {}, t("confirm.rooms", { names: list(rooms) })) : null,
      nodes.some((node) => node.id === 0) ? h("li", {}, t("confirm.cap")) : null,
      h("li", {}, last ? t("confirm.time", { time: duration(last) }) : t("confirm.timeUnknown")),
      away.length > 0 ? h("li", {}, t(away.length === 1 ? "confirm.oneOffline"
        : "confirm.someOffline", { names: list(away) })) : null),
    h("p", { class: "box warn" }, h("strong", {}, t("confirm.dont"))),
    h("p", { class: "row" },
      button(local, "install", t("confirm.button"), { kind: "main", busy: t("confirm.busy") }),
      button(local, "later", t("confirm.later")))];
}

const kBeforeInstalling = {
  "findings.title": findings, "licence.title": licence, "confirm.title": confirm,
};

/** What stands between firmware that is ready and its installation: the key of its title. */
export function confirmTitle(local) {
  if (local.precheck.precheck && !local.goesOn) return "findings.title";
  return local.precheck.eulacheck && !local.agreed ? "licence.title" : "confirm.title";
}

function confirming(model) {
  const title = confirmTitle(model.local);
  return h("div", { class: "stack", "data-key": title }, kBeforeInstalling[title](model));
}

function installing({ mesh, local }) {
  const cap = mesh.nodes.find((node) => node.id === 0);
  const back = local.capBoot !== "" && cap && cap.boot_id !== local.capBoot;
  return [h("h3", {}, t("install.title")),
    local.equal ? note(t("equal.running", local.equal), "info") : null,
    mesh.equal && !local.equal ? note(t("install.equal"), "info") : null,
    mesh.automatic ? note(t("install.auto"), "info") : null,
    h("p", { class: "box warn" },
      h("strong", {}, t(local.equal ? "install.stay" : "install.dont"))),
    bar("whole", t("install.whole"), totalOf(mesh)),
    mesh.nodes.map((node) => {
      const { key, percent } = nodeProgress(node);
      return bar(`install-${node.id}`, nodeName(node), percent,
        node.error !== "" && key === "failed" ? node.error : t(`install.${key}`));
    }),
    back ? note(t("install.back"), "good") : null,
    local.equal ? button(local, "equalCancel", t("equal.cancel"), { busy: t("equal.canceling") })
      : null];
}

const kViews = { idle, found, ready, confirm: confirming, installing,
  done: result, failed: result };

export function update(model, phase) {
  const view = kViews[phase];
  return h("section", { "aria-labelledby": "update-title", "data-key": "update", class: "card" },
    h("h2", { id: "update-title" }, t("update.title")),
    steps(phase, model.local),
    h("div", { "data-key": `phase-${phase}` },
      view === undefined ? transferring(model, phase) : view(model)));
}
