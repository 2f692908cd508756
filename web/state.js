// What the mesh's state means for somebody who owns it. Pure functions: no page, no network.

/** "VXM 1.4.0-76010 Update 1" as people read it. */
export function shortVersion(version) {
  return String(version ?? "").replace(/^VXM /, "");
}

export function nodeName(node) {
  return node.name || `#${node.id}`;
}

/** The word of `status`, as the upgrade module says it. */
function statusOf(mesh) {
  return mesh.status?.status ?? "";
}

export function isInstalling(mesh) {
  return mesh.update_running || statusOf(mesh) === "upgrading";
}

export function isTransferring(mesh) {
  return mesh.status_whatever_the_mesh?.status === "downloading";
}

/** Whether something runs that nobody should sign out of. */
export function isBusy(mesh) {
  return mesh !== null && (isInstalling(mesh) || isTransferring(mesh));
}

/**
 * One sentence for the whole mesh: the key of a text and what goes into it. `tone` says how it is
 * meant: "good", "busy", "warn".
 */
export function meshSentence(mesh) {
  if (isInstalling(mesh)) return { key: "mesh.installing", tone: "busy" };
  const away = mesh.nodes.filter((node) => !node.online);
  if (mesh.status?.reason === "mesh_status_syncing") return { key: "mesh.syncing", tone: "busy" };
  if (away.length > 0) {
    const names = away.map(nodeName);
    return { key: away.length === 1 ? "mesh.oneOffline" : "mesh.someOffline", names, tone: "warn" };
  }
  const versions = new Set(mesh.nodes.map((node) => node.version));
  if (versions.size > 1) return { key: "mesh.different", tone: "warn" };
  const [version] = versions;
  return {
    key: mesh.nodes.length === 1 ? "mesh.alone" : "mesh.all", tone: "good",
    count: mesh.nodes.length, version: shortVersion(version),
  };
}

/**
 * Where an update is on its way. What the router says comes first, so that any page sees the same;
 * only what stands between (what was found, what was agreed to) is this page's own.
 * @param local offer, precheck, dismissed (the `begun` of the last result that was put away)
 */
export function phaseOf(mesh, local) {
  // Between two rounds nothing runs, but it goes on.
  if (isInstalling(mesh) || local.equal !== null) return "installing";
  if (isReadyEverywhere(mesh)) {
    return local.precheck === null ? "ready" : "confirm";
  }
  if (isTransferring(mesh)) {
    return mesh.download?.status === "finished" ? "distributing" : "downloading";
  }
  const last = mesh.last_update;
  if (last && last.begun > local.dismissed) return last.result === "finished" ? "done" : "failed";
  if (local.offer !== null) return "found";
  if (!hasStaged(mesh)) return "idle";
  return local.precheck === null ? "ready" : "confirm";
}

/** Whether firmware stands ready on a node: after a download, by hand, or from a failed update. */
export function hasStaged(mesh) {
  return mesh.nodes.some((node) => node.online && node.staged_version !== "");
}

/** How far a running update is in all. Before it runs, what is told is that of the one before. */
export function totalOf(mesh) {
  return (mesh.update_running ? mesh.update?.total_percentage : mesh.status?.percent) ?? 0;
}

export function isReadyEverywhere(mesh) {
  return mesh.status_whatever_the_mesh?.status === "ready_upgrade";
}

/** The steps in their order, and where a phase stands among them. */
export const kSteps = ["check", "download", "precheck", "confirm", "install", "end"];

export function stepOf(phase, local) {
  switch (phase) {
    case "downloading":
    case "distributing": return 1;
    case "ready": return 2;
    case "confirm": return local.agreed ? 3 : 2;
    case "installing": return 4;
    case "done":
    case "failed": return 5;
    default: return 0;
  }
}

/** What a check's answer offers; null when nothing. */
export function offerOf(answer) {
  if (answer.promotion) {
    return { version: answer.promotion_version, promotion: true, beta: answer.beta_version === true,
      small: answer.type === "smallupdate" };
  }
  if (answer.available) {
    return { version: answer.version, promotion: false, beta: false,
      small: answer.type === "smallupdate" };
  }
  return null;
}

/** The bars of a download and of handing it out: one for each file that comes, one for each node. */
export function transferBars(mesh) {
  const { transfers } = mesh;
  const fetches = transfers.filter(({ name }) => name.startsWith("download-"));
  const target = mesh.download?.version;
  const nodes = mesh.nodes.filter((node) => node.online).map((node) => {
    const own = transfers.find(({ name }) => name === `node-${node.id}`);
    if (own !== undefined && own.whole > 0) {
      return { node, done: own.done, whole: own.whole, state: "going" };
    }
    const has = node.staged_version !== "" && (!target || node.staged_version === target);
    return { node, done: has ? 1 : 0, whole: 1, state: has ? "has" : "waits" };
  });
  return { fetches, nodes };
}

/**
 * The nodes that an update would restart now, the main router last. What is ready on a node the
 * router learns a moment later than that it sent it there.
 */
export function affectedNodes(mesh) {
  const target = mesh.download?.version ||
    mesh.nodes.map((node) => node.staged_version).find((version) => version !== "");
  return mesh.nodes
    .filter((node) => node.online &&
      (node.staged_version !== "" || (target && node.version !== target)))
    .sort((a, b) => b.id - a.id);
}

/** How long the last update took; null when it is not known. */
export function lastDuration(update) {
  return update && update.ended > update.begun ? update.ended - update.begun : null;
}

/** How far one node is in a running update, as a word of the texts and a percentage. */
export function nodeProgress(node) {
  if (node.step === "finish") return { key: "finish", percent: 100 };
  if (node.step === "none") return { key: "waiting", percent: 0 };
  return { key: node.step, percent: Math.max(0, Math.min(100, node.percent)) };
}
