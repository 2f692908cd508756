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
 * What has a data-key is the same thing wherever it stands; the rest goes by its place.
 */
export function morph(target, source) {
  const wanted = [...source.childNodes];
  wanted.forEach((node, i) => {
    const there = target.childNodes[i];
    if (there === undefined) {
      target.append(node);
    } else if (isAlike(there, node)) {
      update(there, node);
    } else {
      place(target, there, node);
    }
  });
  while (target.childNodes.length > wanted.length) target.lastChild.remove();
}

// Something else stands where the node is to be: the node may stand further on, or be new.
function place(target, there, node) {
  if (keyOf(node) === null) {
    if (keyOf(there) === null) return there.replaceWith(node);
    return target.insertBefore(node, there);
  }
  let later = there.nextSibling;
  while (later !== null && !isAlike(later, node)) later = later.nextSibling;
  if (later === null) return target.insertBefore(node, there);
  while (later.previousSibling !== there) later.previousSibling.remove();
  there.remove();
  return update(later, node);
}

function update(there, node) {
  if (node.nodeType === Node.TEXT_NODE) {
    if (there.data !== node.data) there.data = node.data;
    return;
  }
  takeAttributes(there, node);
  morph(there, node);
}

function keyOf(node) {
  return node.nodeType === Node.ELEMENT_NODE ? node.getAttribute("data-key") : null;
}

function isAlike(a, b) {
  return a.nodeType === b.nodeType && a.nodeName === b.nodeName && keyOf(a) === keyOf(b);
}

function takeAttributes(there, wanted) {
  // Whether a <details> is open is the reader's business.
  const own = there.nodeName === "DETAILS" ? ["open"] : [];
  for (const { name } of [...there.attributes]) {
    if (!wanted.hasAttribute(name) && !own.includes(name)) there.removeAttribute(name);
  }
  for (const { name, value } of wanted.attributes) {
    if (!own.includes(name) && there.getAttribute(name) !== value) there.setAttribute(name, value);
  }
}
