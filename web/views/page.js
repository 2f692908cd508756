// The whole page from what is known.

import { h } from "../dom.js";
import { phaseOf, shortVersion, totalOf } from "../state.js";
import { t } from "../text.js";
import { equal } from "./equal.js";
import { hand } from "./hand.js";
import { header } from "./header.js";
import { glance, sentenceText } from "./nodes.js";
import { panel } from "./panels.js";
import { note, problem } from "./parts.js";
import { signIn } from "./sign_in.js";
import { confirmTitle, endingOf, update } from "./update.js";

function connectionNote({ mesh, local }, phase) {
  if (local.lost) return note(t(phase === "installing" ? "lost.installing" : "lost"), "warn");
  return local.troubled && mesh !== null ? note(t("troubled"), "warn") : null;
}

export function page(model, signedIn) {
  if (!signedIn) return signIn(model);
  const { mesh, local } = model;
  if (mesh === null) {
    const text = local.lost ? "lost" : local.troubled ? "troubled" : "loading";
    return [header(model), h("main", { class: "narrow", tabindex: "-1" },
      h("p", { role: "status" }, t(text)))];
  }
  const phase = phaseOf(mesh, local);
  const quiet = ["idle", "found", "done", "failed"].includes(phase);
  return [header(model), h("main", { tabindex: "-1" },
    panel(model), connectionNote(model, phase), problem(local.error),
    glance(model), quiet ? equal(model) : null,
    update(model, phase),
    quiet || local.hand.sending ? hand(model) : null)];
}

const kCoarse = 10;

/** What a screen reader is told: where things stand, and each tenth of what runs. */
export function announcement({ mesh, local }) {
  if (mesh === null) return "";
  const phase = phaseOf(mesh, local);
  if (local.lost) return t(phase === "installing" ? "lost.installing" : "lost");
  if (local.error !== null) return "";  // an alert speaks for itself
  const tenth = (part) => `${Math.floor(part / kCoarse) * kCoarse} %`;
  switch (phase) {
    case "downloading": return `${t("download.whole")}: ${tenth(mesh.download?.percent ?? 0)}`;
    case "distributing": return t("distribute.title",
      { version: shortVersion(mesh.download?.version) });
    case "installing": return `${t("install.title")}: ${tenth(totalOf(mesh))}`;
    case "found": return endingOf(mesh, local) ??
      t("found.title", { version: shortVersion(local.offer.version) });
    case "ready": return t("ready.title");
    case "confirm": return t(confirmTitle(local));
    case "done": return t("done.title");
    case "failed": return t("failed.title");
    default: return local.nothing ? t(local.nothing) : endingOf(mesh, local) ?? sentenceText(mesh);
  }
}
