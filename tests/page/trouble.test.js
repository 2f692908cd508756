// What goes wrong, what is done by hand, and a narrow screen, on a mesh whose nodes differ.

import assert from "node:assert/strict";
import { after, before, test } from "node:test";

import { button, heading, launch, open, signIn } from "./support/browser.js";
import { Mesh, waitFor } from "./support/mesh.js";

let mesh;
let browser;
let tab;

before(async () => {
  mesh = await Mesh.start("trouble", ["--first-version", "VXM 1.4.0-76010",
    "--node-version", "3=VXM 1.4.0-76000"]);
  mesh.publish(["kalo_m1-76010", "kalo_m2-76010"]);
  browser = await launch();
  tab = await open(browser, mesh, { viewport: { width: 320, height: 640 }, hasTouch: true,
    isMobile: true, colorScheme: "dark" });
});

after(async () => {
  await browser?.close();
  await mesh?.end();
});

/** Nothing is wider than the screen, and what is to be touched is large enough for a finger. */
async function fits(where) {
  const { wide, small } = await tab.evaluate(() => ({
    wide: document.documentElement.scrollWidth - document.documentElement.clientWidth,
    small: [...document.querySelectorAll("button")].filter((one) => one.offsetHeight > 0 &&
      one.offsetHeight < 32).map((one) => one.textContent),
  }));
  assert.equal(wide, 0, `${where} is wider than the screen`);
  assert.deepEqual(small, [], where);
}

test("nodes of different versions are brought to one", async () => {
  await fits("sign-in");
  await signIn(tab, mesh);
  await heading(tab, "Nodes run different versions.");
  await fits("different versions");
  await button(tab, "Bring all nodes to one version").click();
  await heading(tab, "Installing");
  await tab.locator("#page").getByText(/^Bringing .* to 1\.4\.0-76010/).waitFor();
  await fits("bringing level");
  await heading(tab, "Done");
  await tab.getByRole("cell", { name: "updated" }).first().waitFor();
  await button(tab, "Close").click();
  await heading(tab, "All 4 nodes run 1.4.0-76010.");
  assert.equal(mesh.runningVersion(3), "1.4.0-76010");
});

test("a node that is away is named, also where there is no stream of events", async () => {
  const polling = await open(browser, mesh);
  await polling.route("**/events", (route) =>
    route.continue({ headers: { ...route.request().headers(), accept: "application/json" } }));
  await signIn(polling, mesh);
  await heading(polling, "All 4 nodes run 1.4.0-76010.");
  mesh.event(3, "offline");
  await heading(tab, "Attic is offline.");
  await heading(polling, "Attic is offline.");
  await polling.context().close();
  await fits("a node away");
  mesh.event(3, "online");
  await heading(tab, "All 4 nodes run 1.4.0-76010.");
});

test("a wrong file is refused before anything is sent", async () => {
  await tab.locator("#page").getByText("Install a file by hand").click();
  await tab.setInputFiles("#files", mesh.patch("keys/../../../page/trouble/box").replace(/\.patch$/, ".json"));
  await tab.locator("#page").getByText("box.json is no patch file.").waitFor();
  assert.ok(await button(tab, "Send to the router").isHidden());
});

test("files by hand: model, version and checksum are shown, what is missing is named", async () => {
  await tab.setInputFiles("#files", mesh.patch("kalo_m1-76020"));
  await tab.locator("#page").getByText(/kalo_m1-76020\.patch: 1\.4\.0-76020 for kalo_m1/).waitFor();
  await tab.locator("#page").getByText(/SHA-256: [0-9a-f]{64}/).waitFor();
  await tab.locator("#page").getByText("Still missing: a file for kalo_m2.").waitFor();
  assert.ok(await button(tab, "Send to the router").isDisabled());
  await tab.setInputFiles("#files", mesh.patch("kalo_m2-76010"));
  await tab.locator("#page").getByText("The files are of different versions").waitFor();
  await fits("files by hand");
  await tab.setInputFiles("#files", mesh.patch("kalo_m2-76020"));
  await button(tab, "Send to the router").click();
  await heading(tab, "Ready to install");
  await fits("ready");
});

test("a node that fails is named, with the reason, and nothing is lost", async () => {
  await button(tab, "Continue").click();
  await heading(tab, "Licence agreement");
  await tab.getByLabel("I agree").check();
  await fits("licence");
  await button(tab, "Continue").click();
  await heading(tab, "Install now?");
  await fits("confirm");
  mesh.event(3, "fill-disk");
  await button(tab, "Install now").click();
  await heading(tab, "Installing");
  await fits("installing");
  await heading(tab, "The update failed");
  await tab.locator("#page").getByText(/Attic.*could not install/).first().waitFor();
  await tab.locator("#page").getByText("Nothing is lost").waitFor();
  await fits("failed");
  mesh.event(3, "free-disk");
  assert.equal(mesh.runningVersion(3), "1.4.0-76010");
  for (const id of [0, 1, 2]) assert.equal(mesh.runningVersion(id), "1.4.0-76020");
});

test("a mesh service that is away is borne", async () => {
  await button(tab, "Close").click();
  await heading(tab, "Nodes run different versions.");
  await tab.locator("#page").getByText("Last update failed").waitFor();
  mesh.event(0, "mesh-stop");
  await tab.locator("#page").getByText("its mesh service does not yet").waitFor();
  mesh.event(0, "mesh-start");
  await waitFor("the service again", () => tab.locator("#page").getByText("its mesh service does not yet").isHidden());
});

test("a server that is away is told, and the page comes back", async () => {
  mesh.event(0, "hang");
  mesh.exec(0, "sh", "-c", "kill -KILL $(pidof webapid)");
  const told = tab.locator("main").getByText("The main router does not answer at the moment.");
  await told.waitFor();
  await told.waitFor({ state: "detached" });
  await heading(tab, "Nodes run different versions.");
});

test("nothing complained", () => assert.deepEqual(tab.complaints, []));
