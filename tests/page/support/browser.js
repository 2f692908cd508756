// Chromium with the page in it, as an owner would have it.

import { chromium } from "playwright-core";

import { waitFor } from "./mesh.js";

const kFlags = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
  "--disable-background-networking", "--disable-component-update", "--disable-sync"];
const kPatience = 30_000;

export async function launch() {
  return chromium.launch({ executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium",
    args: kFlags });
}

/**
 * Opens the page in a tab of its own.
 * @param options of the browser's context: locale, viewport, colorScheme
 * @return the tab; `complaints` are what its console and its policy complained of
 */
export async function open(browser, mesh, options = {}) {
  const context = await browser.newContext({ ignoreHTTPSErrors: true, locale: "en-GB",
    viewport: { width: 1100, height: 900 }, ...options });
  const tab = await context.newPage();
  tab.setDefaultTimeout(kPatience);
  tab.complaints = [];
  tab.on("console", (message) => {
    // The router going away is part of what is tried here; refusals are what the page shows.
    const expected = /net::ERR_|Failed to load resource/.test(message.text());
    if (message.type() === "error" && !expected) tab.complaints.push(message.text());
  });
  tab.on("pageerror", (error) => tab.complaints.push(String(error)));
  await tab.goto(mesh.address);
  return tab;
}

/** Signs in, again and again while the router still holds an earlier attempt against it. */
export async function signIn(tab, mesh) {
  await waitFor("the sign-in", async () => {
    await tab.fill("#user", mesh.user);
    await tab.fill("#password", mesh.password);
    await tab.press("#password", "Enter");
    const nodes = tab.locator(".nodes");
    await nodes.or(tab.getByRole("alert")).first().waitFor();
    return nodes.isVisible();
  });
}

export function button(tab, name) {
  return tab.getByRole("button", { name, exact: true });
}

/** Waits until the page shows this heading. */
export async function heading(tab, name) {
  await tab.getByRole("heading", { name }).waitFor();
}
