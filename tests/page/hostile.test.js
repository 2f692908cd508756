// Texts from outside are shown as they are, whatever they look like, in every place that shows one.

import assert from "node:assert/strict";
import { after, before, test } from "node:test";

import { launch, open, signIn } from "./support/browser.js";
import { Mesh } from "./support/mesh.js";

const kTexts = makeTexts(200);

/** Markup, scripts, addresses, odd directions and bytes; each with a mark that tells it again. */
function makeTexts(count) {
  const seeds = [
    (mark) => `<script>globalThis.hurt=${mark}</script>`,
    (mark) => `<img src=x onerror="globalThis.hurt=${mark}">`,
    (mark) => `"><svg onload=globalThis.hurt=${mark}>`,
    (mark) => `' onmouseover='globalThis.hurt=${mark}`,
    (mark) => `javascript:globalThis.hurt=${mark}//`,
    (mark) => `{{${mark}}}\${globalThis.hurt=${mark}}`,
    (mark) => `{version}{names}{count}${mark}`,
    (mark) => `</textarea></title></style><iframe src=//x.example/${mark}>`,
    (mark) => `\u202e${mark}\u0000\u0007\ud83d\ude00`,
    (mark) => `${"w".repeat(3000)}${mark}`,
    (mark) => `&lt;b&gt;${mark}&#60;i&#62;`,
    (mark) => `<template shadowrootmode=open>${mark}</template>`,
    (mark) => `<form action=//x.example><button>${mark}</button></form>`,
    (mark) => `\n\n\t ${mark} \r\n`,
    (mark) => `__proto__ constructor ${mark}`,
    (mark) => `<base href=//x.example/${mark}><meta http-equiv=refresh content=0>`,
  ];
  return Array.from({ length: count }, (_, i) => seeds[i % seeds.length](`m${i}m`));
}

function node(id, text) {
  return { id, name: text, model: text, version: text, role: "satellite", online: id !== 2,
    boot_id: text, step: "none", percent: 0, staged_version: text, error: text };
}

const kUpdate = (text) => ({ begun: 1, ended: 5, cause: "owner", result: "failed",
  nodes: [{ id: 0, name: text, from: text, wanted: text, result: "failed", error: text, errno: 1 }] });

function state(text, change = {}) {
  return { nodes: [node(0, text), node(1, text), node(2, text)], update_running: false,
    status: { status: "none" }, status_whatever_the_mesh: { status: "none" },
    update: { total_percentage: 5 }, download: { status: "none", version: text, percent: 5 },
    transfers: [{ name: `download-${text}`, done: 1, whole: 2 }, { name: "node-1", done: 1, whole: 2 }],
    notifications: { count: 1, newest: text }, last_update: null, ...change };
}

/** Every view that shows a text from outside: the router's state, and what is pressed then. */
function scenes(text) {
  const whatever = (status, download) => ({ status_whatever_the_mesh: { status },
    download: { status: download, version: text, percent: 5 } });
  return [
    { state: state(text) },
    { state: state(text), press: ["check"] },
    { state: state(text), press: ["panel:bell"] },
    { state: state(text), press: ["panel:history"] },
    { state: state(text, whatever("downloading", "downloading")) },
    { state: state(text, whatever("downloading", "finished")) },
    { state: state(text, whatever("ready_upgrade", "finished")), press: ["precheck"] },
    { state: state(text, whatever("ready_upgrade", "finished")), press: ["precheck", "goOn"] },
    { state: state(text, { update_running: true }) },
    { state: state(text, { last_update: kUpdate(text) }) },
  ];
}

const kAnswers = (text) => ({
  "Patch/2/check": { promotion: true, promotion_version: text, beta_version: true, type: text },
  "Mesh/1/releases": { releases: [{ model: text, version: text, size: 5, beta: false,
    notes: { enu: text, [text]: text } }] },
  "Notification/1/list": { notifications: [{ id: 1, time: 5, text, source: text, topic: text }] },
  "Mesh/1/history": { updates: [kUpdate(text)] },
  "Upgrade/1/precheck": { eulacheck: true, eulacheck_content: text, precheck: true,
    precheck_info: { can_continue: true, leading_note: text, message: text } },
});

let mesh;
let browser;
let tab;

before(async () => {
  mesh = await Mesh.start("hostile", ["--nodes", "1"]);
  browser = await launch();
  tab = await open(browser, mesh);
  await signIn(tab, mesh);
});

after(async () => {
  await browser?.close();
  await mesh?.end();
});

/** Shows scenes as the page itself would, and reads what stands in each. */
function show(scenesOfText, answers) {
  return tab.evaluate(async ([all, replies]) => {
    const { h, morph } = await import("/dom.js");
    const { page, announcement } = await import("/views/page.js");
    const { Actions } = await import("/actions.js");
    const { freshLocal } = await import("/local.js");
    const real = globalThis.fetch;
    globalThis.fetch = async (url) => {
      const row = Object.keys(replies).find((name) => url.endsWith(name));
      return new Response(JSON.stringify(row === undefined
        ? { success: false, error: { code: 7002, message: Object.values(replies)[0].type } }
        : { success: true, data: replies[row] }));
    };
    const showOne = async (wanted) => {
      const model = { mesh: wanted.state, local: { ...freshLocal(0), downloadSeen: true } };
      const place = document.createElement("div");
      const render = () => morph(place, h("div", {}, page(model, true)));
      const actions = new Actions(model, { render, connection: { start() {}, stop() {} } });
      document.body.append(place);
      render();
      for (const step of wanted.press ?? []) {
        const [name, value] = step.split(":");
        const element = document.createElement("button");
        if (value) element.setAttribute("data-value", value);
        await actions.run(name, element);
        await new Promise((wake) => setTimeout(wake));
      }
      render();
      const text = `${place.textContent} ${announcement(model)}`;
      const strange = [...place.querySelectorAll("script, iframe, form, img, base, meta, template, b")]
        .filter((one) => one.getAttribute("src") !== "/icon.svg").map((one) => one.outerHTML);
      const handlers = [...place.querySelectorAll("*")].flatMap((one) => [...one.attributes])
        .map(({ name }) => name).filter((name) => name.startsWith("on") || name === "href");
      place.remove();
      return { text, strange, handlers, hurt: globalThis.hurt ?? null };
    };
    const seen = [];
    for (const scene of all) seen.push(await showOne(scene));
    globalThis.fetch = real;
    return seen;
  }, [scenesOfText, answers]);
}

test("two hundred hostile texts in every field stay texts", async () => {
  for (const [i, text] of kTexts.entries()) {
    for (const [number, seen] of (await show(scenes(text), kAnswers(text))).entries()) {
      const where = `text ${i}, scene ${number}`;
      assert.deepEqual([seen.strange, seen.handlers, seen.hurt], [[], [], null], where);
      assert.ok(seen.text.includes(`m${i}m`), where);
    }
  }
});

test("long texts do not widen the page", async () => {
  const wide = await tab.evaluate(() =>
    document.documentElement.scrollWidth - document.documentElement.clientWidth);
  assert.equal(wide, 0);
});

test("the policy lets nothing run that is not the page's own", async () => {
  const refused = await tab.evaluate(async () => {
    const failures = [];
    try {
      document.body.insertAdjacentHTML("beforeend", "<img src=x onerror='globalThis.hurt=1'>");
    } catch (error) {
      failures.push(error.name);
    }
    // Later, as what the test itself evaluates is let through.
    await new Promise((done) => setTimeout(() => {
      try {
        eval("globalThis.hurt = 2");
      } catch (error) {
        failures.push(error.name);
      }
      done();
    }));
    const script = document.createElement("script");
    try {
      script.textContent = "globalThis.hurt = 3";
      document.body.append(script);
    } catch (error) {
      failures.push(error.name);
    }
    return { failures, hurt: globalThis.hurt ?? null };
  });
  assert.equal(refused.hurt, null);
  assert.ok(refused.failures.length >= 2, JSON.stringify(refused));
});

test("who does nothing for long is signed out, with a reason", async () => {
  const left = await open(browser, mesh);
  await left.clock.install();
  await left.reload();
  await signIn(left, mesh);
  await left.clock.fastForward("16:00");
  await left.getByText("You were signed out because nothing happened here for a while.").waitFor();
  assert.equal(await left.evaluate(() => localStorage.getItem("kalo.token")), null);
  await left.context().close();
});

test("tabs share one session, and its end", async () => {
  const other = await tab.context().newPage();
  await other.goto(mesh.address);
  await other.locator(".nodes").waitFor();
  await tab.reload();
  await tab.locator(".nodes").waitFor();
  await other.getByRole("button", { name: "Sign out" }).click();
  await other.locator("#password").waitFor();
  await tab.locator("#page").getByText("Your session has ended.").waitFor();
  await other.close();
  await signIn(tab, mesh);
});

test("what stands further on stays when something comes before it", async () => {
  const kept = await tab.evaluate(async () => {
    const { h, morph } = await import("/dom.js");
    const place = document.createElement("div");
    const view = (note, panel) => h("div", {}, panel ? h("section", { "data-key": "panel" }) : null,
      note ? h("p", {}, "note") : null, h("section", { "data-key": "a" }, h("input", {})),
      h("details", { "data-key": "b" }, h("summary", {}, "x")));
    morph(place, view(false, false));
    const [input, details] = [place.querySelector("input"), place.querySelector("details")];
    details.open = true;
    const seen = [];
    for (const [note, panel] of [[true, false], [true, true], [false, true], [false, false]]) {
      morph(place, view(note, panel));
      seen.push(place.querySelector("input") === input && place.querySelector("details") === details &&
        details.open && place.childNodes.length === 2 + Number(note) + Number(panel));
    }
    return seen;
  });
  assert.deepEqual(kept, [true, true, true, true]);
});

test("a page that frames it shows nothing of it", async () => {
  const outside = await tab.context().newPage();
  await outside.setContent(`<iframe src="${mesh.address}/"></iframe>`);
  await outside.waitForTimeout(500);
  const frame = outside.frames().find((one) => one !== outside.mainFrame());
  assert.ok(frame === undefined || !(await frame.content()).includes("app.js"));
});
