// Takes a picture of each step of an update, on a real mesh, into docs/images.

import { mkdirSync } from "node:fs";
import { join } from "node:path";

import { button, heading, launch, open, signIn } from "./support/browser.js";
import { Mesh, waitFor } from "./support/mesh.js";

const kOut = process.argv[2] ?? "docs/images";
const kNotes = {
  enu: "• Faster roaming between nodes\n• WPA3 for the guest network\n• Fixes three security faults",
  ger: "• Schnellerer Wechsel zwischen den Knoten\n• WPA3 für das Gastnetz\n• Behebt drei Sicherheitslücken",
};

mkdirSync(kOut, { recursive: true });
const mesh = await Mesh.start("pictures", ["--feed-rate", "1000"]);
const browser = await launch();
try {
  const tab = await open(browser, mesh, { viewport: { width: 1000, height: 800 } });
  const picture = async (name, fullPage = true) => {
    await tab.screenshot({ path: join(kOut, `${name}.png`), fullPage });
    console.log(name);
  };
  await picture("sign-in", false);
  await signIn(tab, mesh);
  await heading(tab, "All 4 nodes run 1.4.0-76000");
  await picture("glance");
  mesh.publish(["kalo_m1-76010", "kalo_m2-76010"],
    ...Object.entries(kNotes).flatMap(([language, text]) =>
      ["--notes", mesh.notesFile(language, text)]));
  await button(tab, "Check for updates").click();
  await tab.locator("#page").getByText("What is new").waitFor();
  await picture("found");
  await button(tab, "Download").click();
  await heading(tab, "Downloading");
  await tab.locator("#page").getByText(/a second,/).first().waitFor();
  await picture("downloading");
  await heading(tab, "Ready to install");
  await picture("ready");
  await button(tab, "Continue").click();
  await heading(tab, "Licence agreement");
  await picture("licence");
  await tab.getByLabel("I agree").check();
  await button(tab, "Continue").click();
  await heading(tab, "Install now?");
  await picture("confirm");
  await button(tab, "Install now").click();
  await heading(tab, "Installing");
  await waitFor("an update under way", async () =>
    Number(await tab.locator("[data-key=whole] progress").getAttribute("value")) >= 10);
  await picture("installing");
  await heading(tab, "Done");
  await picture("done");
  await button(tab, "Close").click();
  await heading(tab, "All 4 nodes run 1.4.0-76010");
  await button(tab, "History").click();
  await tab.locator("#panel summary").first().click();
  await picture("history");

  const phone = await open(browser, mesh, { viewport: { width: 390, height: 800 },
    colorScheme: "dark", locale: "de-DE", deviceScaleFactor: 2 });
  await signIn(phone, mesh);
  await heading(phone, "Alle 4 Knoten");
  await phone.screenshot({ path: join(kOut, "phone.png") });
  if (tab.complaints.length + phone.complaints.length > 0) {
    throw new Error([...tab.complaints, ...phone.complaints].join("\n"));
  }
} finally {
  await browser.close();
  await mesh.end();
}
