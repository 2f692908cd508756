import { h } from "../dom.js";
import { kSteps, stepOf } from "../state.js";
import { t } from "./parts.js";

/** Where one is on the way of an update. */
export function steps(phase, local) {
  const now = stepOf(phase, local);
  return h("ol", { class: "steps" }, kSteps.map((step, i) =>
    h("li", { class: i < now ? "past" : i === now ? "now" : "", "data-key": step,
      "aria-current": i === now ? "step" : null },
      h("span", { class: "ball", "aria-hidden": "true" }, i < now ? "✓" : i + 1),
      h("span", { class: "label" }, t(`step.${step}`)),
      i < now ? h("span", { class: "unseen" }, ` (${t("steps.done")})`) : null)));
}
