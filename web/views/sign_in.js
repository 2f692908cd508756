import { h } from "../dom.js";
import { note, problem, t } from "./parts.js";
import { session } from "../api.js";

export function signIn({ local }) {
  return h("main", { class: "narrow", "data-key": "sign-in" },
    h("h1", {}, h("img", { src: "/icon.svg", alt: "" }), t("signIn.title")),
    local.signedOut ? note(t(local.signedOut)) : h("p", {}, t("signIn.intro")),
    problem(local.error),
    h("form", { "data-submit": "signIn", "data-key": "sign-in-form" },
      h("label", { for: "user" }, t("signIn.user")),
      h("input", { id: "user", name: "user", autocomplete: "username", required: true,
        autocapitalize: "none", spellcheck: "false", maxlength: 64, value: session.user }),
      h("label", { for: "password" }, t("signIn.password")),
      h("input", { id: "password", name: "password", type: "password", required: true,
        autocomplete: "current-password", maxlength: 1024 }),
      h("button", { class: "main", "aria-disabled": local.busy === "signIn" ? "true" : null },
        local.busy === "signIn" ? t("signIn.busy") : t("signIn.button"))));
}
