// The page: what it knows, what it shows, and what its buttons do.

import { session } from "./api.js";
import { Actions } from "./actions.js";
import { h, morph } from "./dom.js";
import { Live } from "./live.js";
import { freshLocal } from "./local.js";
import { RateMeter } from "./rate.js";
import { isBusy, isTransferring, phaseOf } from "./state.js";
import { language, t } from "./text.js";
import { announcement, page } from "./views/page.js";

const kOldResult = 3600;         // seconds after which a result is no news any more
const kIdle = 15 * 60_000;       // as long as the router keeps a session that nobody uses
const kKeepAlive = 4 * 60_000;

/** All that this page knows: the mesh as the router tells it, and what is only this page's own. */
const model = {
  mesh: null,
  local: freshLocal(Number(localStorage.getItem("kalo.dismissed")) || 0),
};

const meters = new Map();
const root = document.getElementById("page");
const live = document.getElementById("live");

function render() {
  const wanted = h("div", {}, page(model, session.token !== ""));
  const before = document.activeElement;
  morph(root, wanted);
  // What had the focus may be gone with its view: the new one's begin is where to go on.
  if (before !== document.body && !before.isConnected) {
    root.querySelector("main")?.focus({ preventScroll: true });
  }
  const text = announcement(model);
  if (live.textContent !== text) live.textContent = text;
}

function measure(mesh) {
  const now = Date.now();
  const { rates } = model.local;
  for (const name of [...meters.keys()]) {
    if (!mesh.transfers.some((one) => one.name === name)) meters.delete(name);
  }
  rates.clear();
  for (const { name, done } of mesh.transfers) {
    if (!meters.has(name)) meters.set(name, new RateMeter());
    rates.set(name, meters.get(name).at(done, now));
  }
}

// What this page remembers counts only as long as the router is where it was.
function reconcile(before, mesh) {
  const { local } = model;
  const last = mesh.last_update;
  if (before === null && last && Date.now() / 1000 - last.ended > kOldResult) {
    local.dismissed = Math.max(local.dismissed, last.begun);
  }
  const phase = phaseOf(mesh, local);
  if (phase !== "confirm" && phase !== "ready") {
    Object.assign(local, { precheck: null, ticked: false, agreed: false, goesOn: false,
      refused: false });
  }
  if (isTransferring(mesh)) {
    local.downloadSeen = true;
    if (before !== null && !isTransferring(before)) local.canceled = false;
  }
  const cap = mesh.nodes.find((node) => node.id === 0);
  if (phase !== "installing") local.capBoot = cap?.boot_id ?? "";
  if (phase === "installing" || phase === "done" || phase === "failed") {
    Object.assign(local, { offer: null, nothing: null, downloadSeen: false });
  }
}

const connection = new Live({
  state(mesh) {
    const before = model.mesh;
    model.mesh = mesh;
    Object.assign(model.local, { lost: false, troubled: false });
    measure(mesh);
    reconcile(before, mesh);
    if (before?.notifications?.newest !== mesh.notifications.newest ||
        before?.notifications?.count !== mesh.notifications.count) actions.refreshPanel("bell");
    if (before?.last_update?.begun !== mesh.last_update?.begun) actions.refreshPanel("history");
    actions.onState(mesh);
    render();
  },
  lost() {
    model.local.lost = true;
    render();
  },
  troubled() {
    model.local.troubled = true;
    render();
  },
  ended(error) {
    if (error.isEndOfSession) actions.leave("signIn.ended");
    else actions.leave(null, error);
  },
});

const actions = new Actions(model, { render, connection });

function onAction(event, name) {
  const element = event.target.closest?.(`[data-${name}]`);
  if (!element || element.hasAttribute("disabled")) return;
  if (name === "submit") event.preventDefault();
  actions.run(element.getAttribute(`data-${name}`), element, event);
}

document.documentElement.lang = language;
document.title = t("title");
root.addEventListener("click", (event) => onAction(event, "action"));
root.addEventListener("submit", (event) => onAction(event, "submit"));
root.addEventListener("change", (event) => onAction(event, "change"));
root.addEventListener("dragover", (event) => {
  if (event.target.closest?.("[data-drop]")) event.preventDefault();
});
root.addEventListener("drop", (event) => {
  if (!event.target.closest?.("[data-drop]")) return;
  event.preventDefault();
  actions.run("files", { files: event.dataTransfer.files });
});
for (const use of ["pointerdown", "keydown", "wheel"]) {
  addEventListener(use, () => session.touch(), { passive: true });
}

// Listening is no use of a session. Somebody who reads, or waits for what runs, stays signed in;
// nobody at all does not.
setInterval(() => {
  if (session.token === "") return;
  const busy = isBusy(model.mesh) || model.local.busy !== null;
  if (!busy && Date.now() - session.lastUse > kIdle) {
    actions.signOut("signIn.idle");
  } else {
    actions.keepAlive(kKeepAlive);
  }
}, 15_000);

if (session.token !== "") connection.start();
render();
