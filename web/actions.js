// What the buttons do. Each action runs alone: while one is under way the others wait.

import { ApiError, call, session, signIn, signOut, upload } from "./api.js";
import { freshLocal } from "./local.js";
import { describePatch, sha256 } from "./patch_file.js";
import { hasStaged, isInstalling, isReadyEverywhere, isTransferring, nodeName, offerOf, shortVersion }
  from "./state.js";
import { firmwareLanguage, list, t } from "./text.js";
import { modelsOf } from "./views/hand.js";

const kMesh = "KALO.Mesh.Upgrade";
const kPatience = 10_000;   // until the router's state shows what was asked
const kRound = 30 * 60_000;
const kOwnFault = -1;       // of this page, not of the router
const kNodesTell = 10_000;  // what they hold

// A folder, or a file that has gone since, is no patch either.
async function describe(file) {
  try {
    const found = await describePatch(file);
    return found === null ? null : { ...found, sum: await sha256(file) };
  } catch {
    return null;
  }
}

export class Actions {
  #model;
  #render;
  #connection;
  #waiting = new Set();
  #uploading = null;
  #lastCall = Date.now();

  constructor(model, { render, connection }) {
    this.#model = model;
    this.#render = render;
    this.#connection = connection;
  }

  get #local() {
    return this.#model.local;
  }

  /** Runs one action by its name, and shows what goes wrong. */
  async run(name, element) {
    const quick = this.#quick[name];
    if (quick !== undefined) {
      quick.call(this, element);
      return this.#render();
    }
    if (this.#local.busy !== null) return;
    this.#local.busy = name;
    this.#local.error = null;
    this.#render();
    try {
      this.#lastCall = Date.now();
      await this.#long[name].call(this, element);
    } catch (error) {
      this.#fail(error);
    } finally {
      // Who left meanwhile may be about to sign in again.
      if (this.#local.busy === name) this.#local.busy = null;
      this.#render();
    }
  }

  #fail(error) {
    if (session.token === "" && this.#local.busy !== "signIn") return;  // all is over already
    if (!(error instanceof ApiError)) {
      console.error(error);
      this.#local.error = new ApiError(kOwnFault, "");
    } else if (error.isEndOfSession) {
      this.leave("signIn.ended");
    } else {
      this.#local.error = error;
    }
  }

  /** Back to the sign-in, with the reason, or the error that is one. */
  leave(reason, error = null) {
    session.forget();
    this.#connection.stop();
    this.#uploading?.abort();
    this.#model.mesh = null;
    Object.assign(this.#local, freshLocal(this.#local.dismissed), { signedOut: reason, error });
    for (const one of [...this.#waiting]) one.end(false);
    this.#render();
  }

  async signOut(reason) {
    await signOut();
    this.leave(reason);
  }

  /** Tells the router now and then that somebody is there. */
  async keepAlive(every) {
    if (Date.now() - this.#lastCall < every) return;
    this.#lastCall = Date.now();
    try {
      await call("KALO.Core.Mesh", 1, "nodes");
    } catch {
      // Whether the router is there the stream finds out.
    }
  }

  /** Wakes who waits for a state of the mesh. */
  onState(mesh) {
    for (const one of [...this.#waiting]) if (one.condition(mesh)) one.end(true);
  }

  /** Waits for such a state; false when it did not come in time, or all is over. */
  #until(condition, patience = kPatience) {
    return new Promise((resolve) => {
      const end = (held) => {
        clearTimeout(timer);
        this.#waiting.delete(waiting);
        resolve(held);
      };
      const waiting = { condition, end };
      const timer = setTimeout(() => end(false), patience);
      this.#waiting.add(waiting);
    });
  }

  /** Asks anew for what an open panel shows. */
  async refreshPanel(panel) {
    if (this.#local.panel !== panel) return;
    try {
      if (panel === "bell") {
        this.#local.notifications =
          (await call("KALO.Core.Notification", 1, "list")).notifications;
      } else {
        this.#local.history = (await call("KALO.Core.Mesh", 1, "history")).updates;
      }
    } catch (error) {
      this.#fail(error);
    }
    this.#render();
  }

  // What takes no time.
  #quick = {
    panel(element) {
      const wanted = element.getAttribute("data-value");
      this.#local.panel = wanted === "" || wanted === this.#local.panel ? null : wanted;
      if (this.#local.panel !== null) this.refreshPanel(this.#local.panel);
    },
    tick(element) {
      this.#local.ticked = element.checked;
    },
    agree() {
      this.#local.agreed = true;
    },
    refuse() {
      Object.assign(this.#local, { precheck: null, ticked: false, refused: true });
    },
    goOn() {
      this.#local.goesOn = true;
    },
    later() {
      Object.assign(this.#local, { precheck: null, ticked: false, agreed: false, goesOn: false });
    },
    putAway() {
      this.#local.dismissed = this.#model.mesh.last_update.begun;
      localStorage.setItem("kalo.dismissed", String(this.#local.dismissed));
      // The router may have brought a newer page along.
      location.reload();
    },
    removeFile(element) {
      delete this.#local.hand.files[element.getAttribute("data-value")];
    },
  };

  // What asks the router, or reads files.
  #long = {
    async signIn(form) {
      const fields = new FormData(form);
      await signIn(fields.get("user"), fields.get("password"));
      Object.assign(this.#local, { signedOut: null, lost: false });
      this.#connection.start();
    },

    async signOut() {
      await this.signOut(null);
    },

    async check() {
      Object.assign(this.#local, { offer: null, nothing: null, releases: null,
        downloadSeen: false, canceled: false });
      const answer = await call(`${kMesh}.Patch`, 2, "check");
      this.#local.offer = offerOf(answer);
      if (this.#local.offer === null) {
        this.#local.nothing = answer.over_version ? "idle.over" : "idle.none";
      } else {
        this.#askReleases(this.#local.offer.version);
      }
    },

    async download() {
      const before = this.#model.mesh.download.status;
      const begun = this.#until((mesh) => isTransferring(mesh) || isReadyEverywhere(mesh) ||
        mesh.download.status !== before);
      await call(`${kMesh}.Download`, 1, "start", { is_promotion: this.#local.offer.promotion });
      await begun;
      this.#local.downloadSeen = true;
    },

    async cancel() {
      const ended = this.#until((mesh) => !isTransferring(mesh));
      // What is finished stays; the nodes go on getting it.
      this.#local.canceled = this.#model.mesh.download.status === "downloading";
      await call(`${kMesh}.Download`, 1, "cancel");
      await ended;
    },

    async discard() {
      await call(`${kMesh}.Patch`, 1, "clean");
      Object.assign(this.#local, { precheck: null, offer: null, nothing: null,
        downloadSeen: false });
    },

    async precheck() {
      Object.assign(this.#local, { refused: false, ticked: false, agreed: false, goesOn: false });
      const found = await call(kMesh, 1, "precheck", { lang: firmwareLanguage });
      // Firmware before a certain build has nothing to say and says so in its own way.
      this.#local.precheck = { eulacheck: found.eulacheck === true,
        eulacheck_content: String(found.eulacheck_content ?? ""), precheck: found.precheck === true,
        precheck_info: found.precheck_info ?? {} };
      this.#local.agreed = !this.#local.precheck.eulacheck;
    },

    async install() {
      const last = this.#model.mesh.last_update?.begun;
      const begun = this.#until((mesh) => isInstalling(mesh) || mesh.last_update?.begun !== last);
      await call(kMesh, 1, "start");
      await begun;
    },

    async dismiss(element) {
      await call("KALO.Core.Notification", 1, "dismiss",
        { id: Number(element.getAttribute("data-value")) });
      await this.refreshPanel("bell");
    },

    async equalStart() {
      this.#local.equalNote = null;
      const first = await this.#nextRound();
      if (first === null) {
        this.#local.equalNote = "equal.none";
      } else {
        await this.#startRound(first);
        this.#bringLevel(first);
      }
    },

    async equalCancel() {
      await call(`${kMesh}.Equal`, 1, "cancel");
      this.#local.equal = null;
    },

    async files(element) {
      const models = modelsOf(this.#model.mesh);
      const { hand } = this.#local;
      hand.refused = [];
      const files = [...element.files];
      element.value = "";  // so that the same file can be chosen once more
      for (const file of files) {
        const found = await describe(file);
        if (found === null) {
          hand.refused.push(t("hand.noPatch", { name: file.name }));
        } else if (!models.includes(found.model)) {
          hand.refused.push(t("hand.wrongModel", { name: file.name, model: found.model,
            models: list(models) }));
        } else {
          hand.files[found.model] = { file, version: found.version, sum: found.sum };
        }
        this.#render();
      }
    },

    async send() {
      const { hand } = this.#local;
      const files = Object.fromEntries(
        Object.entries(hand.files).map(([model, { file }]) => [model, file]));
      hand.sending = { sent: 0, whole: 1 };
      this.#uploading = new AbortController();
      try {
        await upload(files, (sent, whole) => {
          hand.sending = { sent, whole };
          this.#render();
        }, this.#uploading.signal);
        hand.files = {};
        this.#local.offer = null;
        this.#local.dismissed = this.#model.mesh?.last_update?.begun ?? this.#local.dismissed;
        await this.#until(hasStaged, kNodesTell);
      } finally {
        this.#uploading = null;
        hand.sending = null;
      }
    },
  };

  // Size and notes are nice to have: an update is offered without them too.
  async #askReleases(version) {
    try {
      const { releases } = await call("KALO.Core.Mesh", 1, "releases", { version });
      if (this.#local.offer?.version === version) this.#local.releases = releases;
      this.#render();
    } catch (error) {
      if (!(error instanceof ApiError)) throw error;
    }
  }

  async #nextRound() {
    const nodes = this.#model.mesh.nodes.map(({ id }) => id);
    const offer = await call(`${kMesh}.Patch.Check`, 1, "equal", { nodes });
    return offer.available === true ? offer : null;
  }

  async #startRound(offer) {
    await call(`${kMesh}.Equal`, 1, "start");
    this.#local.equal = this.#describeRound(offer);
  }

  // Round after round, until nobody lags behind. A round that changed nothing would change nothing
  // the next time either.
  async #bringLevel(first) {
    let offer = first;
    try {
      while (offer !== null && await this.#until(isInstalling)) {
        await this.#until((mesh) => !isInstalling(mesh) &&
          mesh.status?.reason !== "mesh_status_syncing", kRound);
        if (this.#local.equal === null) return;  // cancelled
        const next = await this.#nextRound();
        if (JSON.stringify(next) === JSON.stringify(offer)) break;
        if (next !== null) await this.#startRound(next);
        offer = next;
      }
      if (offer !== null && this.#local.equal !== null) this.#local.equalNote = "equal.failed";
    } catch (error) {
      this.#fail(error);
    } finally {
      this.#local.equal = null;
      this.#render();
    }
  }

  #describeRound(offer) {
    const names = offer.nodes.map((id) =>
      nodeName(this.#model.mesh.nodes.find((node) => node.id === id) ?? { id, name: "" }));
    return { names: list(names), version: shortVersion(offer.version) };
  }
}
