// What the page makes of states, texts and files, without a browser.

import assert from "node:assert/strict";
import { readdirSync, readFileSync } from "node:fs";
import { test } from "node:test";

import { freshLocal } from "../../web/local.js";
import { memberText, valueOf } from "../../web/patch_file.js";
import { RateMeter } from "../../web/rate.js";
import { affectedNodes, lastDuration, meshSentence, nodeProgress, offerOf, phaseOf, shortVersion,
  stepOf, totalOf, transferBars } from "../../web/state.js";
import de from "../../web/text/de.js";
import en from "../../web/text/en.js";

const kOld = "VXM 1.4.0-76000";
const kNew = "VXM 1.4.0-76010";
const kLocal = freshLocal(0);

function node(id, change = {}) {
  return { id, name: ["Hall", "Kitchen", "Attic"][id], model: "kalo_m1", version: kOld, role: "cap",
    online: true, boot_id: "a", step: "none", percent: 0, staged_version: "", error: "", ...change };
}

function mesh(change = {}) {
  return { nodes: [node(0), node(1), node(2)], update_running: false, status: { status: "none" },
    status_whatever_the_mesh: { status: "none" }, download: { status: "none" }, update: {},
    transfers: [], notifications: { count: 0, newest: 0 }, last_update: null, ...change };
}

test("one sentence tells of the whole mesh, the worst first", () => {
  assert.equal(meshSentence(mesh()).key, "mesh.all");
  assert.equal(meshSentence(mesh()).version, "1.4.0-76000");
  assert.equal(meshSentence(mesh({ nodes: [node(0)] })).key, "mesh.alone");
  const different = mesh({ nodes: [node(0), node(1, { version: kNew })] });
  assert.equal(meshSentence(different).key, "mesh.different");
  different.nodes[1].online = false;
  assert.deepEqual(meshSentence(different).names, ["Kitchen"]);
  assert.equal(meshSentence(different).key, "mesh.oneOffline");
  different.status = { status: "mesh_system_error", reason: "mesh_status_syncing" };
  assert.equal(meshSentence(different).key, "mesh.syncing");
  different.update_running = true;
  assert.equal(meshSentence(different).key, "mesh.installing");
  const nameless = mesh({ nodes: [node(0), node(1, { name: "", online: false })] });
  assert.deepEqual(meshSentence(nameless).names, ["#1"]);
});

test("the phase is what the router says, then what the page remembers", () => {
  assert.equal(phaseOf(mesh(), kLocal), "idle");
  assert.equal(phaseOf(mesh(), { ...kLocal, offer: {} }), "found");
  const going = mesh({ status_whatever_the_mesh: { status: "downloading" },
    download: { status: "downloading" } });
  assert.equal(phaseOf(going, kLocal), "downloading");
  going.download.status = "finished";
  assert.equal(phaseOf(going, kLocal), "distributing");
  const ready = mesh({ status_whatever_the_mesh: { status: "ready_upgrade" } });
  assert.equal(phaseOf(ready, kLocal), "ready");
  assert.equal(phaseOf(ready, { ...kLocal, precheck: {} }), "confirm");
  assert.equal(phaseOf({ ...ready, update_running: true }, kLocal), "installing");
  assert.equal(phaseOf({ ...ready, status: { status: "upgrading" } }, kLocal), "installing");
  assert.equal(phaseOf(mesh(), { ...kLocal, equal: {} }), "installing", "between two rounds");
  const last = { begun: 5, ended: 9, result: "finished", nodes: [] };
  assert.equal(phaseOf(mesh({ last_update: last }), kLocal), "done");
  assert.equal(phaseOf(mesh({ last_update: { ...last, result: "failed" } }), kLocal), "failed");
  assert.equal(phaseOf(mesh({ last_update: last }), { ...kLocal, dismissed: 5 }), "idle");
  assert.equal(phaseOf({ ...ready, last_update: last }, kLocal), "ready");
  const byHand = mesh({ last_update: last });
  byHand.nodes[1].staged_version = kNew;
  assert.equal(phaseOf(byHand, kLocal), "done");
  assert.equal(phaseOf(byHand, { ...kLocal, dismissed: 5 }), "ready");
  assert.equal(phaseOf(byHand, { ...kLocal, dismissed: 5, precheck: {} }), "confirm");
  assert.equal(phaseOf(byHand, { ...kLocal, dismissed: 5, offer: {} }), "found");
});

test("a state with errors instead of answers still has a phase and a sentence", () => {
  const troubled = mesh({ status: { error: 117 }, status_whatever_the_mesh: { error: 117 },
    download: { error: 117 }, update: { error: 117 } });
  assert.equal(phaseOf(troubled, kLocal), "idle");
  assert.equal(meshSentence(troubled).key, "mesh.all");
  assert.deepEqual(transferBars(troubled).fetches, []);
});

test("the steps go up with the phases", () => {
  const order = ["idle", "downloading", "ready", "confirm", "installing", "done"];
  const steps = order.map((phase) => stepOf(phase, { agreed: true }));
  assert.deepEqual(steps, [0, 1, 2, 3, 4, 5]);
  assert.equal(stepOf("confirm", { agreed: false }), 2);
});

test("an offer is a promotion, an older kind, or nothing", () => {
  assert.equal(offerOf({ available: false, over_version: true }), null);
  assert.deepEqual(offerOf({ available: true, version: kNew, type: "hbx" }),
    { version: kNew, promotion: false, beta: false, small: false });
  assert.deepEqual(offerOf({ promotion: true, promotion_version: kNew, beta_version: true,
    type: "smallupdate" }), { version: kNew, promotion: true, beta: true, small: true });
});

test("every node of a transfer has a bar: going, there, or waiting", () => {
  const going = mesh({
    nodes: [node(0, { staged_version: kNew }), node(1), node(2), node(3, { online: false })],
    download: { status: "finished", version: kNew },
    transfers: [{ name: "node-1", done: 5, whole: 10 }, { name: "download-kalo_m1", done: 1, whole: 4 }],
  });
  const { fetches, nodes } = transferBars(going);
  assert.deepEqual(fetches.map(({ name }) => name), ["download-kalo_m1"]);
  assert.deepEqual(nodes.map(({ state }) => state), ["has", "going", "waits"]);
});

test("an update restarts whoever lacks the version, the main router last", () => {
  const ready = mesh({ download: { version: kNew } });
  ready.nodes[1].version = kNew;
  ready.nodes.push(node(3, { online: false }));
  assert.deepEqual(affectedNodes(ready).map(({ id }) => id), [2, 0]);
  assert.deepEqual(affectedNodes(mesh()), []);
  const byHand = mesh();
  byHand.nodes[2].staged_version = kNew;
  assert.deepEqual(affectedNodes(byHand).map(({ id }) => id), [2, 1, 0]);
});

test("a node's progress stays between 0 and 100", () => {
  assert.deepEqual(nodeProgress(node(0)), { key: "waiting", percent: 0 });
  assert.deepEqual(nodeProgress(node(0, { step: "finish" })), { key: "finish", percent: 100 });
  assert.equal(nodeProgress(node(0, { step: "reboot", percent: 700 })).percent, 100);
});

test("before an update runs, the last one's percentage does not count", () => {
  assert.equal(totalOf(mesh({ update: { total_percentage: 100 }, status: { percent: 3 } })), 3);
  assert.equal(totalOf(mesh({ update: { total_percentage: 40 }, update_running: true })), 40);
  assert.equal(totalOf(mesh({ update: { error: 117 }, update_running: true })), 0);
});

test("versions and durations", () => {
  assert.equal(shortVersion("VXM 1.4.0-76010 Update 1"), "1.4.0-76010 Update 1");
  assert.equal(shortVersion(undefined), "");
  assert.equal(lastDuration({ begun: 10, ended: 14 }), 4);
  assert.equal(lastDuration({ begun: 10, ended: 10 }), null);
  assert.equal(lastDuration(null), null);
});

test("a rate is that of the last seconds and begins anew with a new transfer", () => {
  const meter = new RateMeter();
  assert.equal(meter.at(0, 0), null);
  assert.equal(meter.at(1000, 1000), 1000);
  assert.equal(meter.at(3000, 2000), 1500);
  assert.equal(meter.at(10, 3000), null);
  assert.equal(meter.at(2010, 4000), 2000);
});

function tar(members) {
  const parts = [];
  for (const [name, text] of members) {
    const header = Buffer.alloc(512);
    header.write(name, 0);
    header.write(`${text.length.toString(8).padStart(11, "0")}`, 124);
    header.write("ustar", 257);
    parts.push(header, Buffer.from(text), Buffer.alloc((512 - (text.length % 512)) % 512));
  }
  return new Uint8Array(Buffer.concat(parts));
}

test("a patch file tells model and version before it is sent", () => {
  const bytes = tar([["manifest.json", "{}".repeat(400)], ["VERSION",
    `unique="kalo_m1"\nversion="${kNew}"\n`]]);
  const text = memberText(bytes, "VERSION");
  assert.equal(valueOf(text, "unique"), "kalo_m1");
  assert.equal(valueOf(text, "version"), kNew);
  assert.equal(valueOf(text, "build"), "");
  for (let size = 0; size < 2048; size += 7) memberText(bytes.subarray(0, size), "VERSION");
  assert.equal(memberText(new Uint8Array(4096), "VERSION"), null);
  assert.equal(memberText(new Uint8Array(4096).fill(0x41), "VERSION"), null);
});

test("both languages have the same texts with the same gaps", () => {
  assert.deepEqual(Object.keys(de).sort(), Object.keys(en).sort());
  const gaps = (text) => (text.match(/\{\w+\}/g) ?? []).sort();
  for (const key of Object.keys(en)) assert.deepEqual(gaps(de[key]), gaps(en[key]), key);
});

test("every error code of the router has a sentence", () => {
  const source = readFileSync(new URL("../../services/webapid/error_sentences.cpp", import.meta.url),
    "utf8");
  const codes = [...source.matchAll(/Row\{(\d+),/g)].map(([, code]) => code);
  assert.ok(codes.length > 30);
  // What never comes to a page that works, or is the session's end.
  const elsewhere = ["7003", "7004", "7005", "7011", "7015", "7016", "7017", "7018"];
  for (const code of codes.filter((one) => !elsewhere.includes(one))) {
    assert.ok(`error.${code}` in en, code);
  }
});

test("no text is there that nobody asks for", () => {
  const root = new URL("../../web/", import.meta.url);
  const source = ["", "views/"].flatMap((folder) => readdirSync(new URL(folder, root))
    .filter((name) => name.endsWith(".js"))
    .map((name) => readFileSync(new URL(folder + name, root), "utf8"))).join("\n");
  // Made of a word of the router's: t(`install.${step}`).
  const made = [...source.matchAll(/`(\w+\.)\$\{/g)].map(([, begin]) => begin);
  for (const key of Object.keys(en)) {
    assert.ok(source.includes(`"${key}"`) || made.some((begin) => key.startsWith(begin)) ||
      key.startsWith("error.") || key.endsWith(".title"), key);
  }
});

test("every text that the page asks for is there", () => {
  const root = new URL("../../web/", import.meta.url);
  const files = ["", "views/"].flatMap((folder) => readdirSync(new URL(folder, root))
    .filter((name) => name.endsWith(".js")).map((name) => folder + name));
  for (const file of files) {
    const source = readFileSync(new URL(file, root), "utf8");
    for (const [, key] of source.matchAll(/\bt\("([\w.]+)"/g)) assert.ok(key in en, `${file}: ${key}`);
  }
});
