// A real mesh on this machine: its own box, its own nodes, its own update feed.

import { execFileSync, spawn } from "node:child_process";
import { existsSync, mkdirSync, openSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import { join, resolve } from "node:path";

export const kBuild = resolve(process.env.KALO_BUILD ?? "build/dev");
export const kPatches = resolve(process.env.KALO_PATCHES ?? join(kBuild, "journeys/patches"));
export const kNext = "1.4.0-76010";

const kUpWithin = 120_000;

export async function waitFor(what, condition, within = 60_000) {
  const end = Date.now() + within;
  for (;;) {
    const value = await condition();
    if (value) return value;
    if (Date.now() > end) throw new Error(`${what}: not within ${within / 1000} s`);
    await new Promise((wake) => setTimeout(wake, 50));
  }
}

export class Mesh {
  /** Starts a mesh and waits until it answers. `options` are further ones of "kalo-box up". */
  static async start(name, options = []) {
    const mesh = new Mesh();
    mesh.state = join(kBuild, "page", name);
    rmSync(join(mesh.state, "box.json"), { force: true });
    mkdirSync(mesh.state, { recursive: true });
    const log = openSync(`${mesh.state}.log`, "w");
    mesh.process = spawn(join(kBuild, "box/kalo-box"),
      ["up", "--state", mesh.state, "--build", kBuild, "--patch-keys", join(kPatches, "keys"),
        "--disk-mib", "1024", "--foreground", "--die-with-parent", ...options],
      { stdio: ["ignore", log, log] });
    let ended = false;
    mesh.process.on("exit", () => { ended = true; });
    const description = join(mesh.state, "box.json");
    await waitFor("the mesh", () => {
      if (ended) throw new Error(`no mesh: ${readFileSync(`${mesh.state}.log`, "utf8")}`);
      return existsSync(description);
    }, kUpWithin);
    Object.assign(mesh, JSON.parse(readFileSync(description, "utf8")));
    return mesh;
  }

  async end() {
    const gone = new Promise((resolved) => { this.process.on("exit", resolved); });
    this.process.kill("SIGTERM");
    await gone;
  }

  #box(...words) {
    return execFileSync(join(kBuild, "box/kalo-box"), words, { encoding: "utf8" });
  }

  exec(node, ...command) {
    return this.#box("exec", "--state", this.state, String(node), "--", ...command);
  }

  /** Makes something happen to a node: "offline", "online", … */
  event(node, word) {
    this.#box("event", "--state", this.state, String(node), word);
  }

  /** What really runs there, read from the node itself. */
  runningVersion(node) {
    return /version="(?:VXM )?([^"]*)"/.exec(this.exec(node, "cat", "/usr/kalo/VERSION"))[1];
  }

  patch(name) {
    return join(kPatches, `${name}.patch`);
  }

  /** Publishes patches, named as "kalo_m1-76010", in the maker's feed. */
  publish(names, ...options) {
    execFileSync(join(kBuild, "programs/kalo-patch/kalo-patch"),
      ["publish", "--feed", join(this.state, "feed"), "--key", join(kPatches, "keys/patch.key"),
        ...options, ...names.map((name) => this.patch(name))]);
  }

  /** A file for "kalo-patch publish --notes". */
  notesFile(language, text) {
    const path = join(this.state, `notes-${language}.txt`);
    writeFileSync(path, text);
    return `${language}=${path}`;
  }
}
