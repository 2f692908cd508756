import { h } from "../dom.js";
import { button, note, t } from "./parts.js";

/** The banner over a mesh whose nodes run different versions. */
export function equal({ mesh, local }) {
  if (mesh.status?.status !== "mesh_version_not_equal") return null;
  return h("section", { class: "box warn", "data-key": "equal" },
    h("p", {}, t("equal.text")),
    local.equalNote ? note(t(local.equalNote), "bad") : null,
    button(local, "equalStart", t("equal.button"), { busy: t("equal.busy") }));
}
