// Builds elements and brings a page up to date with them. Whatever comes from outside becomes a text
// node or an attribute's value, never markup.

/**
 * An element. `attributes` that are false, null or undefined are left out, true stands without a
 * value. Children are elements, texts, or arrays of them; null and false are left out.
 */
export function h(tag, attributes = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (value === false || value === null || value === undefined) continue;
    element.setAttribute(name, value === true ? "" : String(value));
  }
  for (const child of children.flat(Infinity)) {
    if (child === null || child === undefined || child === false) continue;
    element.append(child instanceof Node ? child : document.createTextNode(String(child)));
  }
  return element;
}

/**
 * Makes the children of `target` what those of `source` are, with as few changes as that takes: what
 * has the focus keeps it, what somebody typed stays, a screen reader hears of what is new alone.
 */
export function morph(target, source) {
  const wanted = [...source.childNodes];
  wanted.forEach((node, i) => {
    const there = target.childNodes[i];
    if (there === undefined) {
      target.append(node);
    } else if (!isAlike(there, node)) {
      there.replaceWith(node);
    } else if (node.nodeType === Node.TEXT_NODE) {
      if (there.data !== node.data) there.data = node.data;
    } else {
      takeAttributes(there, node);
      morph(there, node);
    }
  });
  while (target.childNodes.length > wanted.length) target.lastChild.remove();
}

function isAlike(a, b) {
  return a.nodeType === b.nodeType && a.nodeName === b.nodeName &&
    (a.nodeType !== Node.ELEMENT_NODE || a.getAttribute("data-key") === b.getAttribute("data-key"));
}

function takeAttributes(there, wanted) {
  // Whether a <details> is open is the reader's business.
  const own = there.nodeName === "DETAILS" ? ["open"] : [];
  for (const { name } of [...there.attributes]) {
    if (!wanted.hasAttribute(name) && !own.includes(name)) there.removeAttribute(name);
  }
  for (const { name, value } of wanted.attributes) {
    if (there.getAttribute(name) !== value) there.setAttribute(name, value);
  }
}
