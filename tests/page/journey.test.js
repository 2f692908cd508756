// An owner's whole way through an update, on a real mesh, with the keyboard alone.

import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { createRequire } from "node:module";
import { after, before, test } from "node:test";

import { heading, launch, open, signIn } from "./support/browser.js";
import { Mesh, waitFor } from "./support/mesh.js";

const axe = readFileSync(createRequire(import.meta.url).resolve("axe-core/axe.min.js"), "utf8");

let mesh;
let browser;
let tab;

before(async () => {
  mesh = await Mesh.start("journey", ["--feed-rate", process.env.KALO_FEED_RATE ?? "15000"]);
  browser = await launch();
  tab = await open(browser, mesh);
});

after(async () => {
  await browser?.close();
  await mesh?.end();
});

/** What a screen reader's user would stumble over; the policy keeps the page itself from running it. */
async function accessible(where) {
  const world = await tab.context().newCDPSession(tab);
  const { frameTree } = await world.send("Page.getFrameTree");
  const { executionContextId } = await world.send("Page.createIsolatedWorld",
    { frameId: frameTree.frame.id, worldName: "axe" });
  const run = (expression, awaitPromise = false) =>
    world.send("Runtime.evaluate", { expression, contextId: executionContextId, awaitPromise,
      returnByValue: true });
  await run(`${axe}; 0`);
  const { result } = await run(
    `axe.run(document, { resultTypes: ["violations"] }).then(({ violations }) => violations
      .filter(({ impact }) => impact === "serious" || impact === "critical")
      .map(({ id, nodes }) => id + ": " + nodes.map((n) => n.html).join(" | ")))`, true);
  assert.deepEqual(result.value, [], `${where}: ${JSON.stringify(result)}`);
}

/** Presses Tab until this has the focus, as somebody without a mouse does. */
async function tabTo(name, role = "button") {
  const wanted = tab.getByRole(role, { name, exact: true }).first();
  await wanted.waitFor();
  for (let i = 0; i < 60; ++i) {
    if (await wanted.evaluate((element) => element === document.activeElement)) return;
    await tab.keyboard.press("Tab");
  }
  assert.fail(`the keyboard does not reach "${name}"`);
}

async function press(name) {
  await tabTo(name);
  await tab.keyboard.press("Enter");
}

test("a wrong password is told and forgotten", async () => {
  await tab.getByLabel("User name").waitFor();
  await accessible("sign-in");
  await tabTo("User name", "textbox");
  await tab.keyboard.type(mesh.user);
  await tab.keyboard.press("Tab");
  await tab.keyboard.type("wrong");
  await tab.keyboard.press("Enter");
  await tab.getByRole("alert").getByText("The user name or the password is wrong.").waitFor();
  await tab.getByLabel("Password").fill("");
});

test("the mesh at a glance", async () => {
  await signIn(tab, mesh);
  await heading(tab, "All 4 nodes run 1.4.0-76000.");
  for (const { name } of mesh.nodes) await heading(tab, name);
  await accessible("glance");
});

test("what was found: version, notes, size", async () => {
  await press("Check for updates");
  await tab.locator("#page").getByText("There is nothing newer.").waitFor();
  mesh.publish(["kalo_m1-76010", "kalo_m2-76010"],
    "--notes", mesh.notesFile("enu", "Faster.\nSafer."));
  await press("Check for updates");
  await heading(tab, "Version 1.4.0-76010 is available");
  await tab.locator("#page").getByText("Faster.").waitFor();
  await tab.locator("#page").getByText(/kalo_m1: [\d.]+ MiB/).waitFor();
  await accessible("found");
});

test("the download shows each node and can be cancelled", async () => {
  await press("Download");
  await heading(tab, "Downloading 1.4.0-76010");
  await tab.locator("#page").getByText(/MiB of .* MiB, .* a second, .* left/).first().waitFor();
  for (const { name } of mesh.nodes) await tab.locator("#page").getByText(name, { exact: true }).last().waitFor();
  await accessible("downloading");
  await press("Cancel");
  await tab.locator("#page").getByText("The download was cancelled.").waitFor();
});

test("a page that is loaded again shows where things are", async () => {
  await press("Download");
  await heading(tab, "Downloading 1.4.0-76010");
  await tab.reload();
  await heading(tab, /Downloading|Handing|Ready/);
  await heading(tab, "Ready to install");
  await accessible("ready");
});

test("without agreement nothing is installed", async () => {
  await press("Continue");
  await heading(tab, "Licence agreement");
  await tab.locator("#page").getByText("SAMPLE LICENCE AGREEMENT").waitFor();
  assert.ok(await tab.getByRole("button", { name: "Continue", exact: true }).isDisabled());
  await accessible("licence");
  await press("I do not agree");
  await tab.locator("#page").getByText("Without your agreement").waitFor();
  await heading(tab, "Ready to install");
});

test("what stands in the way is told first", async () => {
  mesh.exec(0, "sh", "-c", "echo finding=memory >/etc/kalo/sample-updater");
  await press("Continue");
  await heading(tab, "Please read this first");
  await tab.locator("#page").getByText("not enough memory").waitFor();
  await tab.locator("#page").getByText("The update cannot be installed until this is settled.").waitFor();
  await accessible("findings");
  mesh.exec(0, "sh", "-c", "echo can_continue=yes >>/etc/kalo/sample-updater");
  await press("Check again");
  await press("Continue all the same");
  await heading(tab, "Licence agreement");
  mesh.exec(0, "rm", "/etc/kalo/sample-updater");
});

test("the session may end in the middle", async () => {
  mesh.exec(0, "mv", "/etc/kalo/users.json", "/etc/kalo/users.away");
  await tab.locator("#page").getByText("Your session has ended.").waitFor();
  mesh.exec(0, "mv", "/etc/kalo/users.away", "/etc/kalo/users.json");
  await signIn(tab, mesh);
  await heading(tab, "Ready to install");
});

test("the confirmation names every room and warns", async () => {
  await press("Continue");
  await heading(tab, "Licence agreement");
  await tabTo("I agree to the licence", "checkbox");
  await tab.keyboard.press("Space");
  await press("Continue");
  await tab.keyboard.press("Enter");  // a second one is nobody's consent to what comes next
  await heading(tab, "Install now?");
  assert.ok(await tab.evaluate(() => document.activeElement?.dataset.action !== "install"));
  await tab.locator("#page").getByText("Attic, Kitchen and Living room: no Wi-Fi during the restart.").waitFor();
  await tab.locator("#page").getByText("The main router comes last").waitFor();
  await tab.locator("#page").getByText("Do not switch any node off meanwhile.").waitFor();
  await accessible("confirm");
});

test("the installation is followed over the main router's own restart", async () => {
  await tab.evaluate(() => { globalThis.stillTheSamePage = true; });
  await press("Install now");
  await heading(tab, "Installing");
  await tab.locator("#page").getByText("You may close this page").waitFor();
  await accessible("installing");
  let highest = 0;
  const seen = new Set();
  await waitFor("the end", async () => {
    const now = await tab.evaluate(() => ({
      total: Number(document.querySelector("[data-key=whole] progress")?.value ?? -1),
      text: document.querySelector("[data-key=whole] .bar-note")?.textContent ?? "",
      live: document.getElementById("live").textContent,
      ended: document.querySelector("[data-key=phase-done], [data-key=phase-failed]") !== null,
    }));
    if (now.total >= 0) {
      assert.ok(now.total >= highest, `${highest} was followed by ${now.total}`);
      assert.equal(now.text, `${now.total} %`);
      highest = now.total;
    }
    seen.add(now.live);
    return now.ended;
  }, 150_000);
  assert.ok([...seen].some((text) => text.startsWith("Installing: ")), [...seen].join("; "));
  await heading(tab, "Done");
  assert.ok(await tab.evaluate(() => globalThis.stillTheSamePage));
  await accessible("done");
  for (const { id } of mesh.nodes) assert.equal(mesh.runningVersion(id), "1.4.0-76010");
  const rows = await tab.locator("tbody tr").allInnerTexts();
  assert.deepEqual(rows.map((row) => row.split("\t")).sort(),
    mesh.nodes.map(({ name }) => [name, "1.4.0-76000", "1.4.0-76010", "updated"]).sort());
});

test("history and notifications keep what happened", async () => {
  await press("Close");
  await heading(tab, "All 4 nodes run 1.4.0-76010.");
  await press("History");
  await tab.locator("#page").getByText(/by hand: finished after/).waitFor();
  await accessible("history");
  await press(/^Notifications/);
  const entries = tab.locator("#panel li");
  await entries.first().waitFor();
  const count = await entries.count();
  await accessible("notifications");
  await press("Dismiss");
  await waitFor("the notification to go", async () => await entries.count() === count - 1);
});

test("nothing complained", () => assert.deepEqual(tab.complaints, []));
